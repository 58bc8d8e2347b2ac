// The packets of SFTP, version 3, as a client writes and reads them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TAVOCloud {

enum class SftpType : std::uint8_t {
  kInit = 1,
  kVersion = 2,
  kOpen = 3,
  kClose = 4,
  kRead = 5,
  kWrite = 6,
  kFstat = 8,
  kFsetstat = 10,
  kOpenFolder = 11,
  kReadFolder = 12,
  kRemove = 13,
  kMakeFolder = 14,
  kRemoveFolder = 15,
  kStat = 17,
  kRename = 18,
  kStatus = 101,
  kHandle = 102,
  kData = 103,
  kNames = 104,
  kAttributes = 105,
  kExtended = 200,
  kExtendedReply = 201,
};

enum SftpStatus : std::uint32_t {
  kSftpOk = 0,
  kSftpEnd = 1,
  kSftpNoSuchFile = 2,
  kSftpPermissionDenied = 3,
  kSftpFailure = 4,
  kSftpNoConnection = 6,
  kSftpConnectionLost = 7,
  kSftpUnsupported = 8,
  // Of later versions, which some servers use all the same.
  kSftpFileExists = 11,
  kSftpNoSpace = 14,
  kSftpOverQuota = 15,
};

enum SftpOpenFlag : std::uint32_t {
  kSftpRead = 1,
  kSftpWrite = 2,
  kSftpCreate = 8,
  kSftpTruncate = 16,
};

// What is known of a file; `has_…` where the server tells it.
struct SftpAttributes {
  bool has_size = false;
  std::uint64_t size = 0;
  bool folder = false;
  std::uint32_t changed = 0;  // seconds since 1970; 0: not told
};

// One packet at the end of a text of packets.
class PacketWriter {
 public:
  PacketWriter(std::string* packets, SftpType type, std::uint32_t number);

  PacketWriter& Number(std::uint32_t value);
  PacketWriter& Long(std::uint64_t value);
  PacketWriter& Text(std::string_view value);
  // Attributes: none, or one kind of them.
  PacketWriter& NoAttributes() { return Number(0); }
  PacketWriter& Permissions(mode_t mode);
  PacketWriter& Times(std::uint32_t accessed, std::uint32_t changed);

  // Room for a text of up to `most` bytes that is the packet's last. Fill says how many it has got.
  char* Room(std::size_t most);
  void Fill(std::size_t length);

  // The packet is whole.
  void End();
  // There is no such packet.
  void Cancel() { packets_->resize(start_); }

 private:
  void Put(std::size_t at, std::uint32_t value);

  std::string* packets_;
  std::size_t start_;
  std::size_t room_ = 0;
};

// Reads a packet's fields in their order; false when there is no more of it.
class PacketReader {
 public:
  explicit PacketReader(std::string_view rest) : rest_(rest) {}

  [[nodiscard]] bool Number(std::uint32_t* value);
  [[nodiscard]] bool Long(std::uint64_t* value);
  [[nodiscard]] bool Text(std::string_view* value);
  [[nodiscard]] bool Attributes(SftpAttributes* attributes);

 private:
  std::string_view rest_;
};

// Takes the first whole packet, type and all, out of what has come from `*offset` on. 1: it did; 0:
// it is not there yet; negative: this is no packet.
int TakePacket(std::string_view come, std::size_t* offset, std::string_view* packet);

}  // namespace TAVOCloud
