#include "sftp_packet.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <cstring>

namespace TAVOCloud {
namespace {

constexpr std::size_t kLongestPacket = 1U << 20U;  // more than any answer to our requests
constexpr std::uint32_t kHasSize = 1;
constexpr std::uint32_t kHasOwner = 2;
constexpr std::uint32_t kHasPermissions = 4;
constexpr std::uint32_t kHasTimes = 8;
constexpr std::uint32_t kHasMore = 0x80000000U;

}  // namespace

PacketWriter::PacketWriter(std::string* packets, SftpType type, std::uint32_t number)
    : packets_(packets), start_(packets->size()) {
  Number(0);  // its length, when it is whole
  packets_->push_back(static_cast<char>(type));
  Number(number);
}

void PacketWriter::Put(std::size_t at, std::uint32_t value) {
  const std::uint32_t sent = htonl(value);
  std::memcpy(packets_->data() + at, &sent, sizeof sent);
}

PacketWriter& PacketWriter::Number(std::uint32_t value) {
  packets_->resize(packets_->size() + sizeof value);
  Put(packets_->size() - sizeof value, value);
  return *this;
}

PacketWriter& PacketWriter::Long(std::uint64_t value) {
  Number(static_cast<std::uint32_t>(value >> 32U));
  return Number(static_cast<std::uint32_t>(value));
}

PacketWriter& PacketWriter::Text(std::string_view value) {
  Number(static_cast<std::uint32_t>(value.size()));
  packets_->append(value);
  return *this;
}

PacketWriter& PacketWriter::Permissions(mode_t mode) {
  return Number(kHasPermissions).Number(mode);
}

PacketWriter& PacketWriter::Times(std::uint32_t accessed, std::uint32_t changed) {
  return Number(kHasTimes).Number(accessed).Number(changed);
}

char* PacketWriter::Room(std::size_t most) {
  Number(0);
  room_ = packets_->size();
  packets_->resize(room_ + most);
  return packets_->data() + room_;
}

void PacketWriter::Fill(std::size_t length) {
  packets_->resize(room_ + length);
  Put(room_ - sizeof(std::uint32_t), static_cast<std::uint32_t>(length));
}

void PacketWriter::End() {
  Put(start_, static_cast<std::uint32_t>(packets_->size() - start_ - sizeof(std::uint32_t)));
}

bool PacketReader::Number(std::uint32_t* value) {
  if (rest_.size() < sizeof *value) return false;
  std::memcpy(value, rest_.data(), sizeof *value);
  *value = ntohl(*value);
  rest_.remove_prefix(sizeof *value);
  return true;
}

bool PacketReader::Long(std::uint64_t* value) {
  std::uint32_t high = 0;
  std::uint32_t low = 0;
  if (!Number(&high) || !Number(&low)) return false;
  *value = (static_cast<std::uint64_t>(high) << 32U) | low;
  return true;
}

bool PacketReader::Text(std::string_view* value) {
  std::uint32_t length = 0;
  if (!Number(&length) || rest_.size() < length) return false;
  *value = rest_.substr(0, length);
  rest_.remove_prefix(length);
  return true;
}

bool PacketReader::Attributes(SftpAttributes* attributes) {
  std::uint32_t has = 0;
  std::uint32_t number = 0;
  *attributes = {};
  if (!Number(&has)) return false;
  attributes->has_size = (has & kHasSize) != 0;
  if (attributes->has_size && !Long(&attributes->size)) return false;
  if ((has & kHasOwner) != 0 && (!Number(&number) || !Number(&number))) return false;
  if ((has & kHasPermissions) != 0) {
    if (!Number(&number)) return false;
    attributes->folder = S_ISDIR(number);
  }
  if ((has & kHasTimes) != 0 && (!Number(&number) || !Number(&attributes->changed))) return false;
  if ((has & kHasMore) == 0) return true;
  if (!Number(&number)) return false;
  for (std::string_view text; number > 0; --number) {
    if (!Text(&text) || !Text(&text)) return false;
  }
  return true;
}

int TakePacket(std::string_view come, std::size_t* offset, std::string_view* packet) {
  constexpr std::size_t kShortest = 1 + sizeof(std::uint32_t);  // type and number
  PacketReader reader(come.substr(*offset));
  std::uint32_t length = 0;
  if (!reader.Number(&length)) return 0;
  if (length < kShortest || length > kLongestPacket) return -1;
  if (come.size() - *offset - sizeof length < length) return 0;
  *packet = come.substr(*offset + sizeof length, length);
  *offset += sizeof length + length;
  return 1;
}

}  // namespace TAVOCloud
