#include "sftp_channel.h"

#include <algorithm>
#include <utility>

#include "server_path.h"
#include "silent_servers.h"

namespace TAVOCloud {
namespace {

using End = SshOutcome::End;

constexpr std::uint32_t kVersion = 3;
constexpr std::chrono::seconds kPromptTimeout{20};
// After it has not answered in time.
constexpr std::chrono::seconds kSilentTimeout{5};
constexpr std::chrono::seconds kHurriedTimeout{5};
constexpr std::chrono::seconds kHurriedSilentTimeout{2};
constexpr std::chrono::milliseconds kTick{200};  // how late a stop may be noticed
// Of answers that nobody waits for yet: more than is ever asked for at a time.
constexpr std::size_t kMostEarly = 1000;
constexpr std::size_t kMostEarlyBytes = 16U << 20U;
constexpr std::size_t kMostSent = 1U << 18U;      // that is kept beside what has not been sent
constexpr std::uint32_t kMostData = 255U << 10U;  // in one request
constexpr const char* kLimits = "limits@openssh.com";
constexpr const char* kReplacingRename = "posix-rename@openssh.com";

std::uint32_t Limited(std::uint64_t told, std::uint32_t otherwise) {
  return told == 0 ? otherwise
                   : static_cast<std::uint32_t>(std::min<std::uint64_t>(told, kMostData));
}

}  // namespace

SftpChannel::SftpChannel(core::RemoteConfig remote)
    : remote_(std::move(remote)),
      server_("sftp://" + HostAndPort(remote_.host, remote_.port)),
      quiet_limit_(kPromptTimeout) {}

void SftpChannel::Hurry(bool hurry) {
  hurry_ = hurry;
  const bool silent = SilentServers::Has(server_);
  hurry_until_ = Clock::now() + (silent ? kHurriedSilentTimeout : kHurriedTimeout);
}

std::chrono::seconds SftpChannel::QuietLimit() const {
  return SilentServers::Has(server_) ? std::min(kSilentTimeout, quiet_limit_) : quiet_limit_;
}

SshOutcome SftpChannel::Drop(End end, std::string words) {
  // A hurried request says nothing: it asks for much in little time.
  if (end == End::kSilent && !hurry_) SilentServers::Note(server_, true);
  session_.reset();
  return {end, 0, 0, fresh_, std::move(words)};
}

SshOutcome SftpChannel::Open() {
  fresh_ = false;
  quiet_limit_ = kPromptTimeout;
  oldest_ = next_;
  early_.clear();
  early_bytes_ = 0;
  if (session_ != nullptr) {
    (void)session_->Pump(std::chrono::milliseconds(0));
    if (session_->Stands()) return {};
  }
  session_.reset();
  requests_.clear();
  sent_ = 0;
  taken_ = 0;
  limits_ = {};
  const std::chrono::seconds patience(std::max(remote_.connect_timeout, 1));
  const bool silent = SilentServers::Has(server_);
  auto until = Clock::now() + (silent ? std::min(kSilentTimeout, patience) : patience);
  if (hurry_) until = std::min(until, hurry_until_);
  SshOutcome outcome;
  session_ = SshSession::Open(remote_, flow_, until, &outcome);
  fresh_ = true;
  if (session_ == nullptr) {
    if (outcome.end == End::kSilent && !hurry_) SilentServers::Note(server_, true);
    return outcome;
  }
  return Greet();
}

// The packet that begins a session has its version where others have their number.
SshOutcome SftpChannel::Greet() {
  PacketWriter(&requests_, SftpType::kInit, kVersion).End();
  Reply reply;
  SshOutcome outcome = Await(kVersion, &reply);
  if (!outcome.ok()) return outcome;
  PacketReader reader(reply.fields);
  bool tells_limits = false;
  std::string_view name;
  std::string_view value;
  while (reader.Text(&name) && reader.Text(&value)) {
    tells_limits = tells_limits || name == kLimits;
    limits_.replaces = limits_.replaces || name == kReplacingRename;
  }
  next_ = oldest_ = std::max(next_, kVersion + 1);
  return tells_limits ? LearnLimits() : outcome;
}

SshOutcome SftpChannel::LearnLimits() {
  const Number number =
      Post(SftpType::kExtended, [](PacketWriter& fields) { fields.Text(kLimits); });
  Reply reply;
  SshOutcome outcome = Await(number, &reply);
  if (!outcome.ok() || reply.type != SftpType::kExtendedReply) return outcome;
  PacketReader reader(reply.fields);
  std::uint64_t packet = 0;
  std::uint64_t read = 0;
  std::uint64_t write = 0;
  if (reader.Long(&packet) && reader.Long(&read) && reader.Long(&write)) {
    limits_.read = Limited(read, limits_.read);
    limits_.write = Limited(write, limits_.write);
  }
  return outcome;
}

PacketWriter SftpChannel::Begin(SftpType type, Number* number) {
  if (sent_ == requests_.size() || sent_ >= kMostSent) {
    requests_.erase(0, sent_);
    sent_ = 0;
  }
  *number = next_++;
  return {&requests_, type, *number};
}

void SftpChannel::Flush() {
  while (session_ != nullptr && backlog() > 0) {
    const ssize_t taken = session_->Write(std::string_view(requests_).substr(sent_));
    if (taken <= 0) return;
    sent_ += static_cast<std::size_t>(taken);
  }
}

SshOutcome SftpChannel::Step(Clock::duration* quiet) {
  session_->input().erase(0, std::exchange(taken_, 0));
  const std::size_t before = backlog();
  Flush();
  const auto began = Clock::now();
  const bool came = session_->Pump(kTick);
  if (!came && !session_->Stands()) return Drop(End::kLost, session_->Words());
  const auto now = Clock::now();
  *quiet = came || backlog() != before ? Clock::duration::zero() : *quiet + (now - began);
  if (flow_ != nullptr && flow_->IsCancelled()) return {End::kStopped, 0, 0, fresh_, "stopped"};
  if (*quiet >= QuietLimit() || (hurry_ && now >= hurry_until_)) {
    return Drop(End::kSilent, "timed out: the server does not answer");
  }
  return {};
}

SshOutcome SftpChannel::Await(Number number, Reply* reply) {
  if (session_ == nullptr) return {End::kLost, 0, 0, fresh_, "the connection is lost"};
  if (const auto early = early_.find(number); early != early_.end()) {
    held_ = std::move(early->second);
    early_bytes_ -= held_.size();
    early_.erase(early);
    *reply = {static_cast<SftpType>(held_[0]), std::string_view(held_).substr(5)};
    return {};
  }
  Clock::duration quiet{};
  for (;;) {
    std::string_view packet;
    int taken = 0;
    while ((taken = TakePacket(session_->input(), &taken_, &packet)) > 0) {
      Number of = 0;
      (void)PacketReader(packet.substr(1)).Number(&of);
      if (of == number) {
        SilentServers::Note(server_, false);
        *reply = {static_cast<SftpType>(packet[0]), packet.substr(5)};
        return {};
      }
      if (of >= oldest_ && early_.emplace(of, packet).second) early_bytes_ += packet.size();
    }
    if (taken < 0 || early_.size() > kMostEarly || early_bytes_ > kMostEarlyBytes) {
      return Drop(End::kNonsense, "the server does not answer in SFTP");
    }
    SshOutcome outcome = Step(&quiet);
    if (!outcome.ok()) return outcome;
  }
}

SshOutcome SftpChannel::Unwanted(const Reply& reply, const std::string& what) {
  std::uint32_t status = 0;
  std::string_view words;
  PacketReader reader(reply.fields);
  if (reply.type != SftpType::kStatus || !reader.Number(&status) || status == kSftpOk) {
    return {End::kNonsense, 0, 0, fresh_, what + ": an answer that was not asked for"};
  }
  if (!reader.Text(&words)) words = "refused";
  return {End::kStatus, status, 0, fresh_, what + ": " + std::string(words)};
}

SshOutcome SftpChannel::AwaitStatus(Number number, const std::string& what) {
  Reply reply;
  SshOutcome outcome = Await(number, &reply);
  std::uint32_t status = kSftpFailure;
  if (!outcome.ok()) return outcome;
  const bool done = reply.type == SftpType::kStatus && PacketReader(reply.fields).Number(&status) &&
                    status == kSftpOk;
  return done ? outcome : Unwanted(reply, what);
}

SshOutcome SftpChannel::AwaitHandle(Number number, const std::string& what, std::string* handle) {
  Reply reply;
  SshOutcome outcome = Await(number, &reply);
  std::string_view text;
  if (!outcome.ok()) return outcome;
  if (reply.type != SftpType::kHandle || !PacketReader(reply.fields).Text(&text)) {
    return Unwanted(reply, what);
  }
  *handle = text;
  return outcome;
}

SshOutcome SftpChannel::AwaitAttributes(Number number, const std::string& what,
                                        SftpAttributes* attributes) {
  Reply reply;
  SshOutcome outcome = Await(number, &reply);
  if (!outcome.ok()) return outcome;
  const bool told =
      reply.type == SftpType::kAttributes && PacketReader(reply.fields).Attributes(attributes);
  return told ? outcome : Unwanted(reply, what);
}

}  // namespace TAVOCloud
