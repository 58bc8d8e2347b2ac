// The parameters of a request, from its body to what "start" makes of them.
#include <algorithm>
#include <array>

#include "call.h"
#include "core/utf8.h"
#include "envelope.h"
#include "fuzz.h"
#include "parameters.h"
#include "task/start_parameters.h"
#include "webapi/module_state.h"

namespace fuzz {
namespace {

constexpr std::array kTypes{"application/json", "application/x-www-form-urlencoded", "", "a; b"};

// Reads the body in pieces, as it comes from the network.
host::Body ReadBody(std::string_view text, const char* type, std::size_t piece) {
  httplib::Request request;
  request.set_header("Content-Type", type);
  request.set_header("Content-Length", std::to_string(text.size()));
  const httplib::ContentReader reader(
      [&](const httplib::ContentReceiver& receive) {
        while (!text.empty()) {
          const std::size_t size = std::min(piece, text.size());
          if (!receive(text.data(), size)) return false;
          text.remove_prefix(size);
        }
        return true;
      },
      [](const httplib::MultipartContentHeader&, const httplib::ContentReceiver&) {
        return false;
      });
  host::Body body;
  Require(host::ReadBody(request, reader, &body) == host::BodyStatus::kOk, "a body is read");
  return body;
}

void CrossToRequestProcess(const Json::Value& params, const std::string& body) {
  host::Call call;
  call.params = params;
  call.body = body;
  host::Call other;
  std::string err;
  Require(host::DecodeCall(host::EncodeCall(call), &other, &err), "a call crosses over");
  Require(other.params == params && other.body == body, "a call crosses over unchanged");
  Require(core::IsUtf8(host::JsonText(params)), "answers are UTF-8");
}

void Start(const Json::Value& params, int version) {
  TAVO::APIRequestData data;
  data.version = version;
  data.params = params;
  Fennox::StartContext start("alice");
  std::string destination;
  if (!Fennox::ReadStartParameters(TAVO::APIRequest(data), start, destination)) return;
  Require(!destination.empty(), "there is a destination");
  for (const Json::Value& path : start.sourcePaths) {
    Require(path.isString() && !path.asString().empty(), "paths are texts");
  }
  for (const Json::Value* list : {&start.overwriteList, &start.renameList}) {
    Require(list->isNull() || list->size() == start.sourcePaths.size(), "one choice per path");
  }
}

}  // namespace

void Fuzz(std::string_view input) {
  const std::uint8_t choice = TakeByte(&input);
  const host::Body body =
      ReadBody(input, kTypes.at(choice % kTypes.size()), 1 + (choice >> 4U) * std::size_t{7});
  Json::Value params;
  std::string err;
  if (host::HostParameters(body, {}, &params, &err)) CrossToRequestProcess(params, "");
  params = host::FieldParameters(body, {});
  CrossToRequestProcess(params, body.text);
  if (body.is_json && !host::AddMembers(body.text, &params, &err)) {
    return Require(!err.empty(), "words");
  }
  for (const int version : {1, 2, 3}) Start(params, version);
}

}  // namespace fuzz
