#include "dropbox_hash.h"

#include <algorithm>
#include <array>
#include <new>

namespace TAVOCloud {
namespace {

constexpr std::size_t kBlock = 4U << 20U;

using Sum = std::array<unsigned char, EVP_MAX_MD_SIZE>;

std::string Hexadecimal(const Sum& sum, unsigned length) {
  constexpr std::string_view kHex = "0123456789abcdef";
  std::string text;
  for (unsigned i = 0; i < length; ++i) text += {kHex[sum[i] >> 4U], kHex[sum[i] & 0x0FU]};
  return text;
}

// The one way in which the digests can fail.
void Require(bool done) {
  if (!done) throw std::bad_alloc();
}

}  // namespace

DropboxHash::DropboxHash() : block_(EVP_MD_CTX_new()), whole_(EVP_MD_CTX_new()) {
  Start(block_);
  Start(whole_);
}

void DropboxHash::Start(const Digest& digest) {
  Require(digest != nullptr && EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) == 1);
}

void DropboxHash::Add(std::string_view data) {
  while (!data.empty()) {
    const std::size_t part = std::min(data.size(), kBlock - filled_);
    Require(EVP_DigestUpdate(block_.get(), data.data(), part) == 1);
    filled_ += part;
    data.remove_prefix(part);
    if (filled_ == kBlock) EndBlock();
  }
}

void DropboxHash::EndBlock() {
  Sum sum{};
  unsigned length = 0;
  Require(EVP_DigestFinal_ex(block_.get(), sum.data(), &length) == 1);
  Require(EVP_DigestUpdate(whole_.get(), sum.data(), length) == 1);
  Start(block_);
  filled_ = 0;
}

std::string DropboxHash::Finish() {
  if (filled_ > 0) EndBlock();
  Sum sum{};
  unsigned length = 0;
  Require(EVP_DigestFinal_ex(whole_.get(), sum.data(), &length) == 1);
  return Hexadecimal(sum, length);
}

std::string DropboxHash::Of(std::string_view data) {
  DropboxHash hash;
  hash.Add(data);
  return hash.Finish();
}

}  // namespace TAVOCloud
