#include "sftp_listing.h"

namespace TAVOCloud {
namespace {

constexpr int kMostAnswers = 10'000;  // of some hundred names each

// False when it has no names.
bool Take(const SftpChannel::Reply& reply, LeftoverPicker* picker) {
  PacketReader reader(reply.fields);
  std::uint32_t count = 0;
  if (reply.type != SftpType::kNames || !reader.Number(&count) || count == 0) return false;
  std::string_view name;
  std::string_view shown;
  SftpAttributes attributes;
  for (; count > 0; --count) {
    if (!reader.Text(&name) || !reader.Text(&shown) || !reader.Attributes(&attributes))
      return false;
    picker->Take(std::string(name) + "\n");
  }
  return true;
}

}  // namespace

void ListFolder(SftpChannel* channel, const std::string& folder, LeftoverPicker* picker) {
  const auto post = [channel](SftpType type, const std::string& text) {
    return channel->Post(type, [&](PacketWriter& fields) { fields.Text(text); });
  };
  std::string handle;
  if (!channel->AwaitHandle(post(SftpType::kOpenFolder, folder), folder, &handle).ok()) return;
  SftpChannel::Reply reply;
  for (int answers = 0; answers < kMostAnswers; ++answers) {
    const auto asked = post(SftpType::kReadFolder, handle);
    if (!channel->Await(asked, &reply).ok() || !Take(reply, picker)) break;
  }
  (void)post(SftpType::kClose, handle);
}

}  // namespace TAVOCloud
