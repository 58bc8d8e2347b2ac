#include <algorithm>
#include <deque>

#include "sftp_stream.h"

namespace TAVOCloud {
namespace {

using End = SshOutcome::End;

constexpr std::size_t kMostParts = 64;           // asked for at a time,
constexpr std::uint64_t kMostBytes = 4U << 20U;  // and how much that is
constexpr std::uint32_t kShortestPart = 4096;

struct Part {
  SftpChannel::Number number;
  std::uint64_t offset;
  std::uint32_t length;
};

class Fetch {
 public:
  Fetch(SftpChannel* channel, SftpDownload* download, Flow* flow)
      : channel_(channel),
        download_(download),
        flow_(flow),
        next_(flow->moved()),
        part_(channel->limits().read) {}

  SshOutcome Run() {
    const auto opened = channel_->Post(SftpType::kOpen, [this](PacketWriter& fields) {
      fields.Text(download_->path).Number(kSftpRead).NoAttributes();
    });
    SshOutcome outcome = channel_->AwaitHandle(opened, download_->path, &handle_);
    if (!outcome.ok()) return outcome;
    // A small file has come with the answer to the one question, a large one may change meanwhile.
    const bool large = flow_->size() > part_;
    auto asked = Ask();
    Request();
    outcome = Check(asked);
    while (outcome.ok() && !parts_.empty()) outcome = TakeFirst();
    if (outcome.ok() && large) {
      asked = Ask();
      outcome = Check(asked);
    }
    // Nobody waits for the answer, and it leaves with the next request.
    (void)channel_->Post(SftpType::kClose, [this](PacketWriter& fields) { fields.Text(handle_); });
    if (large) channel_->Flush();
    return outcome;
  }

 private:
  SftpChannel::Number Ask() {
    return channel_->Post(SftpType::kFstat, [this](PacketWriter& fields) { fields.Text(handle_); });
  }

  SftpChannel::Number Read(std::uint64_t offset, std::uint32_t length) {
    return channel_->Post(SftpType::kRead, [&](PacketWriter& fields) {
      fields.Text(handle_).Long(offset).Number(length);
    });
  }

  SshOutcome Check(SftpChannel::Number asked) {
    SftpAttributes attributes;
    SshOutcome outcome = channel_->AwaitAttributes(asked, download_->path, &attributes);
    if (!outcome.ok()) return outcome;
    const bool same = attributes.has_size && attributes.size == flow_->size() &&
                      (!download_->begun || attributes.changed == download_->changed);
    if (!same) return {End::kChanged, 0, 0, false, download_->path + ": has changed"};
    download_->begun = true;
    download_->changed = attributes.changed;
    return outcome;
  }

  // Keeps the line busy.
  void Request() {
    while (next_ < flow_->size() && parts_.size() < kMostParts &&
           next_ - flow_->moved() < kMostBytes) {
      const auto length =
          static_cast<std::uint32_t>(std::min<std::uint64_t>(part_, flow_->size() - next_));
      parts_.push_back({Read(next_, length), next_, length});
      next_ += length;
    }
  }

  SshOutcome TakeFirst() {
    const Part part = parts_.front();
    SftpChannel::Reply reply;
    SshOutcome outcome = channel_->Await(part.number, &reply);
    std::string_view data;
    if (!outcome.ok()) return outcome;
    if (reply.type != SftpType::kData || !PacketReader(reply.fields).Text(&data) || data.empty() ||
        data.size() > part.length) {
      outcome = channel_->Unwanted(reply, download_->path);
      if (outcome.status == kSftpEnd) outcome.end = End::kChanged;  // it has become shorter
      return outcome;
    }
    parts_.pop_front();
    if (!flow_->Put(data.data(), data.size())) return {End::kStopped, 0, 0, false, "stopped"};
    const auto got = static_cast<std::uint32_t>(data.size());
    if (got < part.length) {  // it gives less at a time
      parts_.push_front(
          {Read(part.offset + got, part.length - got), part.offset + got, part.length - got});
      part_ = std::max(got, kShortestPart);
    }
    Request();
    return outcome;
  }

  SftpChannel* channel_;
  SftpDownload* download_;
  Flow* flow_;
  std::uint64_t next_;  // not asked for yet
  std::uint32_t part_;  // how much is asked for at a time
  std::string handle_;
  std::deque<Part> parts_;
};

}  // namespace

SshOutcome FetchFile(SftpChannel* channel, SftpDownload* download, Flow* flow) {
  SshOutcome outcome = channel->Open();
  return outcome.ok() ? Fetch(channel, download, flow).Run() : outcome;
}

}  // namespace TAVOCloud
