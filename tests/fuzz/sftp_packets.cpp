// What an SFTP server sends, as it comes in pieces.
#include "sftp_packet.h"

#include "fuzz.h"

namespace fuzz {
namespace {

using TAVOCloud::PacketReader;
using TAVOCloud::PacketWriter;
using TAVOCloud::SftpAttributes;
using TAVOCloud::SftpType;

// Reads a packet as each kind of answer that is waited for.
void ReadAsAnswers(std::string_view fields) {
  std::uint32_t number = 0;
  std::uint64_t length = 0;
  std::string_view text;
  SftpAttributes attributes;
  PacketReader texts(fields);
  std::size_t told = 0;
  while (texts.Text(&text)) told += text.size() + sizeof number;
  Require(told <= fields.size(), "no text is longer than its packet");
  (void)PacketReader(fields).Attributes(&attributes);
  PacketReader limits(fields);
  while (limits.Long(&length)) told = length;
  PacketReader names(fields);
  if (!names.Number(&number)) return;
  while (number-- > 0 && names.Text(&text) && names.Text(&text) && names.Attributes(&attributes)) {
  }
}

// What is written is read again.
void WriteAndRead(std::string_view text) {
  std::string packets;
  PacketWriter writer(&packets, SftpType::kWrite, 7);
  writer.Text(text).Long(text.size());
  writer.Room(text.size() + 1);
  writer.Fill(text.size());
  writer.End();
  std::size_t offset = 0;
  std::string_view packet;
  Require(TAVOCloud::TakePacket(packets, &offset, &packet) > 0 && offset == packets.size(),
          "a packet is whole");
  PacketReader reader(packet.substr(1));
  std::uint32_t number = 0;
  std::uint64_t length = 0;
  std::string_view first;
  std::string_view last;
  Require(reader.Number(&number) && reader.Text(&first) && reader.Long(&length) &&
              reader.Text(&last) && number == 7 && first == text && length == text.size() &&
              last.size() == text.size(),
          "fields are what they were");
}

}  // namespace

void Fuzz(std::string_view input) {
  std::size_t offset = 0;
  std::string_view packet;
  for (std::size_t come = 0; come <= input.size(); come += 1 + come / 3) {
    const std::size_t before = offset;
    while (TAVOCloud::TakePacket(input.substr(0, come), &offset, &packet) > 0) {
      Require(offset <= come && packet.size() >= 5, "a packet has come, with its number");
      ReadAsAnswers(packet.substr(5));
    }
    Require(offset >= before && offset <= come, "nothing is taken twice or before it comes");
  }
  WriteAndRead(input);
}

}  // namespace fuzz
