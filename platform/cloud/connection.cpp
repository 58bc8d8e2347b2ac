#include "connection.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <deque>
#include <string_view>
#include <utility>

#include "cloud/behind.h"
#include "secret_file.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

constexpr long kReplyTimeout = 30;  // seconds
constexpr int kImplicitTlsPort = 990;

std::size_t OnData(char* data, std::size_t /*one*/, std::size_t length, void* flow) {
  return static_cast<Flow*>(flow)->Put(data, length) ? length : 0;
}

std::size_t OnNames(char* data, std::size_t /*one*/, std::size_t length, void* picker) {
  static_cast<LeftoverPicker*>(picker)->Take({data, length});
  return length;
}

// The commands that come before a rename, in their order.
struct Replies {
  enum class Of { kTarget, kSize, kTime, kRename };

  std::uint64_t wanted;
  std::deque<Of> awaited;
  bool right = false;
  bool taken = false;
  bool takes_times = true;

  // False ends the request.
  bool Take(Of command, std::string_view text) {
    const bool told = text.starts_with("213 ");
    switch (command) {
      case Of::kTarget:
        taken = told;
        return !taken;
      case Of::kSize: {
        std::uint64_t size = 0;
        const auto parsed = std::from_chars(text.data() + 4, text.data() + text.size(), size);
        right = told && parsed.ec == std::errc() && size == wanted;
        return right;
      }
      case Of::kTime:
        takes_times = told;
        return true;
      case Of::kRename:
        return right;
    }
    return false;
  }
};

// The last line of each reply, "CODE words", belongs to the next command that waits for one. What
// comes before them, of a login, is left out: it never begins with a "213", "350" or "5".
std::size_t OnReply(char* line, std::size_t /*one*/, std::size_t length, void* user) {
  auto* replies = static_cast<Replies*>(user);
  const std::string_view text(line, length);
  const bool whole = text.size() > 4 && text[3] == ' ';
  const bool counts = whole && (text.starts_with("213") || text.starts_with("350") ||
                                (text[0] >= '4' && text[0] <= '5'));
  if (!counts || replies->awaited.empty()) return length;
  const Replies::Of command = replies->awaited.front();
  replies->awaited.pop_front();
  return replies->Take(command, text.substr(0, text.find_last_not_of("\r\n") + 1)) ? length : 0;
}

std::string TimeText(std::uint32_t seconds, const char* format) {
  const std::time_t when = seconds;
  std::tm parts{};
  std::array<char, 32> text{};
  (void)gmtime_r(&when, &parts);
  (void)std::strftime(text.data(), text.size(), format, &parts);
  return text.data();
}

// Paths begin at the login folder unless their first slash is encoded.
std::string UrlOf(const core::RemoteConfig& remote, const std::string& path) {
  const bool implicit = remote.protocol == "ftps" && remote.port == kImplicitTlsPort;
  return (implicit ? "ftps://" : "ftp://") + HostAndPort(remote.host, remote.port) + "/%2F" +
         PercentEncode(path.substr(1));
}

}  // namespace

Connection::Connection(core::RemoteConfig remote) : remote_(std::move(remote)), curl_(1) {}

bool Connection::PrepareLogin(std::string* err) {
  if (!have_password_ && !remote_.password_file.empty()) {
    if (!ReadSecret(remote_.password_file, &password_, err)) return false;
    have_password_ = true;
  }
  if (!remote_.user.empty()) curl_.Set(CURLOPT_USERNAME, remote_.user.c_str());
  if (have_password_) curl_.Set(CURLOPT_PASSWORD, password_.c_str());
  return true;
}

void Connection::PrepareSecurity() {
  if (remote_.protocol != "ftps") return;
  curl_.Set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
  curl_.SetTls(remote_.ca_file);
  // Servers ask that a data connection resumes the session of the control
  // connection. The library does that reliably up to TLS 1.2 only: later sessions
  // come in tickets for one use.
  curl_.Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2) |
                                    static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_2));
}

bool Connection::Prepare(const std::string& path, std::string* err) {
  if (!curl_.IsUsable()) {
    *err = "out of memory";
    return false;
  }
  curl_easy_reset(curl_.get());  // keeps the connection
  curl_.SetCommon(UrlOf(remote_, path), "ftp,ftps", remote_.connect_timeout);
  curl_.Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, kReplyTimeout);
  curl_.Set(CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_NOCWD));
  curl_.Set(CURLOPT_FTP_SKIP_PASV_IP, 1L);
  PrepareSecurity();
  if (!PrepareLogin(err)) return false;
  if (!curl_.AreOptionsTaken()) *err = "the transfer library lacks support for " + remote_.protocol;
  return curl_.AreOptionsTaken();
}

Outcome Connection::Unprepared(const std::string& err) {
  Outcome outcome;
  outcome.code = CURLE_LOGIN_DENIED;
  outcome.words = err;
  return outcome;
}

Outcome Connection::Perform() {
  Outcome outcome;
  curl_.Perform(&outcome);
  return outcome;
}

Outcome Connection::Open() { return Run({}); }

Outcome Connection::RunPrepared(const std::vector<std::string>& commands) {
  CurlList list;
  for (const std::string& command : commands) {
    if (!list.Append(command)) return Unprepared("out of memory");
  }
  curl_.SetPrompt();
  curl_.Set(CURLOPT_NOBODY, 1L);
  curl_.Set(CURLOPT_QUOTE, list.get());
  Outcome outcome = Perform();
  curl_.Set(CURLOPT_QUOTE, static_cast<curl_slist*>(nullptr));
  return outcome;
}

Outcome Connection::Run(const std::vector<std::string>& commands) {
  std::string err;
  return Prepare("/", &err) ? RunPrepared(commands) : Unprepared(err);
}

Outcome Connection::RenameWhole(const std::string& from, const std::string& to,
                                const FileFacts& facts, bool* whole) {
  using Of = Replies::Of;
  std::string err;
  if (!Prepare("/", &err)) return Unprepared(err);
  Replies replies{facts.size, {}};
  std::vector<std::string> commands;
  const auto add = [&](Of of, std::string command) {
    replies.awaited.push_back(of);
    commands.push_back(std::move(command));
  };
  if (facts.only_new) add(Of::kTarget, "*SIZE " + to);
  add(Of::kSize, "SIZE " + from);
  if (takes_times_ && facts.changed != 0) {
    add(Of::kTime, "*MFMT " + TimeText(facts.changed, "%Y%m%d%H%M%S") + " " + from);
  }
  add(Of::kRename, "RNFR " + from);
  commands.push_back("RNTO " + to);
  curl_.Set(CURLOPT_HEADERFUNCTION, &OnReply);
  curl_.Set(CURLOPT_HEADERDATA, &replies);
  Outcome outcome = RunPrepared(commands);
  *whole = replies.right || replies.taken;
  takes_times_ = takes_times_ && replies.takes_times;
  if (replies.taken) outcome.code = CURLE_REMOTE_FILE_EXISTS;
  return outcome;
}

Outcome Connection::Size(const std::string& path, std::uint64_t* size) {
  std::string err;
  if (!Prepare(path, &err)) return Unprepared(err);
  curl_.SetPrompt();
  curl_.Set(CURLOPT_NOBODY, 1L);
  Outcome outcome = Perform();
  if (!outcome.ok()) return outcome;
  curl_off_t length = -1;
  (void)curl_easy_getinfo(curl_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  if (length < 0) {
    outcome.code = CURLE_BAD_DOWNLOAD_RESUME;
    outcome.words = "the server tells no size";
  } else {
    *size = static_cast<std::uint64_t>(length);
  }
  return outcome;
}

Outcome Connection::Folder(const std::string& path) { return Run({"CWD " + path}); }

Outcome Connection::List(const std::string& folder, LeftoverPicker* picker) {
  std::string err;
  if (!Prepare(folder, &err)) return Unprepared(err);
  curl_.SetPrompt();
  curl_.Set(CURLOPT_DIRLISTONLY, 1L);
  // Without the option many servers leave names out that begin with a dot.
  curl_.Set(CURLOPT_CUSTOMREQUEST, "NLST -a");
  curl_.Set(CURLOPT_WRITEFUNCTION, &OnNames);
  curl_.Set(CURLOPT_WRITEDATA, picker);
  return Perform();
}

Outcome Connection::Download(const std::string& path, std::uint64_t offset, Flow* flow) {
  std::string err;
  if (!Prepare(path, &err)) return Unprepared(err);
  curl_.SetPrompt();
  curl_.Set(CURLOPT_WRITEFUNCTION, &OnData);
  curl_.Set(CURLOPT_WRITEDATA, flow);
  curl_.Set(CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(offset));
  // Whoever wants all of a small file compares its size in the end, and need not ask for it first.
  if (flow->size() <= Behind::kLargest) curl_.Set(CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
  return Perform();
}

Outcome Connection::Upload(const std::string& path, std::uint64_t offset, Flow* flow) {
  std::string err;
  if (!Prepare(path, &err)) return Unprepared(err);
  curl_.SetUpload(flow);
  curl_.Set(CURLOPT_LOW_SPEED_TIME, kReplyTimeout);
  curl_.Set(CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(offset));
  return Perform();
}

}  // namespace TAVOCloud
