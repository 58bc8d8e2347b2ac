#include <algorithm>
#include <deque>

#include "sftp_stream.h"

namespace TAVOCloud {
namespace {

using End = SshOutcome::End;

constexpr std::uint64_t kMostBytes = 4U << 20U;  // on their way at a time
constexpr std::size_t kMostParts = 64;
constexpr std::chrono::seconds kPartTimeout{30};
constexpr std::chrono::seconds kWholeTimeout{60};  // it may take its time with all of a file

struct Part {
  SftpChannel::Number number;
  std::uint64_t end;
};

class Send {
 public:
  Send(SftpChannel* channel, SftpUpload* upload, Flow* flow)
      : channel_(channel), upload_(upload), flow_(flow) {}

  SshOutcome Run() {
    SshOutcome outcome = OpenFile();
    if (outcome.ok()) outcome = WriteAll();
    if (outcome.ok()) return Finish();
    // What is open keeps its room on a full disk, even when its name is gone.
    if (!handle_.empty()) {
      (void)PostOf(SftpType::kClose);
      channel_->Flush();
    }
    return outcome;
  }

 private:
  [[nodiscard]] const std::string& path() const { return upload_->path; }

  SftpChannel::Number PostOf(SftpType type) {
    return channel_->Post(type, [this](PacketWriter& fields) { fields.Text(handle_); });
  }

  // What has come over a broken connection counts as far as the server has confirmed it: later
  // parts may have been written before earlier ones.
  SshOutcome OpenFile() {
    const bool again = upload_->begun;
    const auto opened = channel_->Post(SftpType::kOpen, [&](PacketWriter& fields) {
      const std::uint32_t how = kSftpWrite | kSftpCreate;
      fields.Text(path()).Number(again ? how : how | kSftpTruncate);
      fields.Permissions(flow_->Permissions() | 0600U);
    });
    SshOutcome outcome = channel_->AwaitHandle(opened, path(), &handle_);
    if (!outcome.ok()) return outcome;
    upload_->begun = true;
    if (again) {
      SftpAttributes attributes;
      outcome = channel_->AwaitAttributes(PostOf(SftpType::kFstat), path(), &attributes);
      if (!outcome.ok()) return outcome;
      upload_->taken = std::min(upload_->taken, attributes.size);
    }
    if (flow_->SeekTo(upload_->taken)) return outcome;
    return {End::kChanged, 0, 0, false, path() + ": the source cannot be read again"};
  }

  SshOutcome WriteAll() {
    channel_->WaitFor(kPartTimeout);
    SshOutcome outcome;
    while (outcome.ok() && flow_->moved() < flow_->size()) {
      const bool full = parts_.size() >= kMostParts ||
                        flow_->moved() - upload_->taken >= kMostBytes ||
                        (!parts_.empty() && channel_->backlog() >= channel_->limits().write);
      outcome = full ? TakeFirst() : WriteNext();
    }
    return outcome;
  }

  SshOutcome WriteNext() {
    SftpChannel::Number number = 0;
    PacketWriter writer = channel_->Begin(SftpType::kWrite, &number);
    writer.Text(handle_).Long(flow_->moved());
    const std::uint64_t left = flow_->size() - flow_->moved();
    const std::size_t most = std::min<std::uint64_t>(channel_->limits().write, left);
    const ssize_t got = flow_->Get(writer.Room(most), most);
    if (got <= 0) {
      writer.Cancel();
      return {End::kStopped, 0, 0, false, "stopped"};
    }
    writer.Fill(static_cast<std::size_t>(got));
    writer.End();
    parts_.push_back({number, flow_->moved()});
    if (flow_->moved() < flow_->size()) channel_->Flush();  // or with what follows
    return {};
  }

  SshOutcome TakeFirst() {
    const Part part = parts_.front();
    SshOutcome outcome = channel_->AwaitStatus(part.number, path());
    if (!outcome.ok()) return outcome;
    parts_.pop_front();
    upload_->taken = part.end;
    return outcome;
  }

  // All that is left to ask goes in one piece.
  SshOutcome Finish() {
    channel_->WaitFor(kWholeTimeout);
    if (upload_->dated && flow_->ChangeTime() != 0) {  // it goes without, if it must
      (void)channel_->Post(SftpType::kFsetstat, [this](PacketWriter& fields) {
        fields.Text(handle_).Times(flow_->AccessTime(), flow_->ChangeTime());
      });
    }
    const auto asked = PostOf(SftpType::kFstat);
    const auto closed = PostOf(SftpType::kClose);
    SshOutcome outcome;
    while (outcome.ok() && !parts_.empty()) outcome = TakeFirst();
    SftpAttributes attributes;
    if (outcome.ok()) outcome = channel_->AwaitAttributes(asked, path(), &attributes);
    if (outcome.ok()) outcome = channel_->AwaitStatus(closed, path());
    if (!outcome.ok() || (attributes.has_size && attributes.size == flow_->size())) return outcome;
    return {End::kChanged, 0, 0, false, path() + ": has not arrived whole"};
  }

  SftpChannel* channel_;
  SftpUpload* upload_;
  Flow* flow_;
  std::string handle_;
  std::deque<Part> parts_;
};

}  // namespace

SshOutcome SendFile(SftpChannel* channel, SftpUpload* upload, Flow* flow) {
  SshOutcome outcome = channel->Open();
  return outcome.ok() ? Send(channel, upload, flow).Run() : outcome;
}

}  // namespace TAVOCloud
