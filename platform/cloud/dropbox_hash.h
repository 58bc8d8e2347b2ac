// The hash by which Dropbox tells one content from another.
#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace TAVOCloud {

// SHA-256 over the SHA-256 of each block of 4 MiB, in hexadecimal digits.
class DropboxHash {
 public:
  DropboxHash();

  void Add(std::string_view data);
  // Of all that was added; nothing may be added afterwards.
  std::string Finish();

  static std::string Of(std::string_view data);

 private:
  struct CleanUp {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  using Digest = std::unique_ptr<EVP_MD_CTX, CleanUp>;

  static void Start(const Digest& digest);
  void EndBlock();

  Digest block_;
  Digest whole_;
  std::size_t filled_ = 0;  // of the block
};

}  // namespace TAVOCloud
