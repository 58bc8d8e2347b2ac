// What a server may send that is no answer.
#include "sftp_packet.h"

#include <gtest/gtest.h>

namespace {

using namespace TAVOCloud;

TEST(SftpPacket, AttributesAreReadWholeOrNotAtAll) {
  std::string text;
  PacketWriter writer(&text, SftpType::kAttributes, 7);
  writer.Number(0x8000000FU).Long(5'000'000'000).Number(1).Number(2).Number(040755);
  writer.Number(3).Number(4).Number(1).Text("name").Text("value").End();
  std::size_t offset = 0;
  std::string_view packet;
  for (std::size_t cut = 0; cut < text.size(); ++cut) {
    EXPECT_EQ(TakePacket(std::string_view(text).substr(0, cut), &offset, &packet), 0) << cut;
  }
  ASSERT_EQ(TakePacket(text, &offset, &packet), 1);
  EXPECT_EQ(offset, text.size());
  const std::string_view fields = packet.substr(5);
  SftpAttributes attributes;
  for (std::size_t cut = 0; cut < fields.size(); ++cut) {
    EXPECT_FALSE(PacketReader(fields.substr(0, cut)).Attributes(&attributes)) << cut;
  }
  ASSERT_TRUE(PacketReader(fields).Attributes(&attributes));
  EXPECT_TRUE(attributes.has_size && attributes.folder);
  EXPECT_EQ(attributes.size, 5'000'000'000);
  EXPECT_EQ(attributes.changed, 4U);
}

TEST(SftpPacket, LengthsThatNoAnswerHasAreRefused) {
  for (const std::uint32_t length : {0U, 4U, 1U << 21U, 0xFFFFFFFFU}) {
    std::string text;
    PacketWriter(&text, SftpType::kStatus, 1).End();
    for (int i = 0; i < 4; ++i) text[i] = static_cast<char>(length >> (24 - 8 * i));
    std::size_t offset = 0;
    std::string_view packet;
    EXPECT_LT(TakePacket(text, &offset, &packet), 0) << length;
  }
}

}  // namespace
