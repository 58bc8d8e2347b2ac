// Frames and descriptors between the front and the launcher.
#include "frames.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "call.h"
#include "fuzz.h"

namespace fuzz {
namespace {

constexpr std::size_t kLimit = 4096;
constexpr int kTimeoutMs = 1000;

// Bytes from a peer that may write anything.
void ReceiveStream(std::string_view bytes) {
  core::UniqueFd ours;
  core::UniqueFd theirs;
  Require(host::MakeSocketPair(SOCK_STREAM, &ours, &theirs), "there are sockets");
  if (send(theirs.get(), bytes.data(), bytes.size(), MSG_DONTWAIT) < 0) return;
  theirs.reset();
  std::string payload;
  std::size_t taken = 0;
  while (host::ReceiveFrame(ours.get(), kLimit, kTimeoutMs, &payload) == host::FrameStatus::kOk) {
    Require(payload.size() <= kLimit, "the limit holds");
    Require(bytes.substr(taken + 4, payload.size()) == payload, "the payload is what was sent");
    taken += 4 + payload.size();
    host::Call call;
    std::string err;
    if (!host::DecodeCall(payload, &call, &err)) Require(!err.empty(), "there are words");
  }
  Require(payload.empty(), "nothing is left of a broken frame");
}

void SendAndReceive(std::string_view bytes) {
  core::UniqueFd ours;
  core::UniqueFd theirs;
  Require(host::MakeSocketPair(SOCK_STREAM, &ours, &theirs), "there are sockets");
  std::string payload;
  Require(host::SendFrame(theirs.get(), bytes, kTimeoutMs) == host::FrameStatus::kOk &&
              host::ReceiveFrame(ours.get(), bytes.size(), kTimeoutMs, &payload) ==
                  host::FrameStatus::kOk,
          "a frame arrives");
  Require(payload == bytes, "a frame arrives unchanged");
}

// One message with `count` descriptors.
void SendMessage(int socket, std::string_view text, std::size_t count, int fd) {
  std::vector<int> fds(count, fd);
  std::vector<char> control(CMSG_SPACE(sizeof(int) * count));
  iovec part{const_cast<char*>(text.data()), text.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (count > 0) {
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(int) * count);
    std::memcpy(CMSG_DATA(rights), fds.data(), sizeof(int) * count);
  }
  (void)sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

int LowestFree() { return core::UniqueFd(open("/dev/null", O_RDONLY | O_CLOEXEC)).get(); }

void ReceiveDescriptors(std::string_view bytes) {
  const int lowest = LowestFree();
  {
    core::UniqueFd ours;
    core::UniqueFd theirs;
    Require(host::MakeSocketPair(SOCK_SEQPACKET, &ours, &theirs), "there are sockets");
    while (!bytes.empty()) {
      const std::size_t count = TakeByte(&bytes) % 20;
      const std::size_t size = std::min<std::size_t>(TakeByte(&bytes) % 4, bytes.size());
      SendMessage(theirs.get(), bytes.substr(0, size), count, theirs.get());
      bytes.remove_prefix(size);
      core::UniqueFd fd;
      auto errand = host::Errand::kRequest;
      const auto status = host::ReceiveDescriptor(ours.get(), &fd, &errand);
      Require(fd.valid() == (status == host::DescriptorStatus::kOk), "a descriptor, or none");
      if (status == host::DescriptorStatus::kEnd) break;
    }
  }
  Require(LowestFree() == lowest, "no descriptor is left open");
}

}  // namespace

void Fuzz(std::string_view input) {
  input = input.substr(0, 2 * kLimit);
  const std::uint8_t choice = TakeByte(&input) % 4;
  if (choice == 0) SendAndReceive(input);
  if (choice == 1) ReceiveDescriptors(input);
  if (choice >= 2) ReceiveStream(input);
}

}  // namespace fuzz
