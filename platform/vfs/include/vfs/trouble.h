// Why a remote server cannot be used, in kinds that people can act on.
#pragma once

#include <string>

namespace vfs {

enum class TroubleKind {
  kNone,
  kNotResolved,   // the server's name has no address
  kRefused,       // nothing listens there
  kTimedOut,      // no answer in time
  kUnreachable,   // the network or the connection failed otherwise
  kLoginFailed,   // wrong user, password or key
  kHostKey,       // the server's SSH key is unknown or another one
  kCertificate,   // the server's TLS certificate is not trusted
  kNoFolder,      // the base folder is not there
  kNotAvailable,  // this machine lacks what is needed: FUSE, a program, a secret
  kOther,
};

struct Trouble {
  TroubleKind kind = TroubleKind::kNone;
  std::string words;  // one line for people; holds no secret

  explicit operator bool() const { return kind != TroubleKind::kNone; }
};

// Short name of a kind, such as "login failed"; "" for none.
const char* NameOf(TroubleKind kind);

// Tells the kind by what a helper or a library said about it.
[[nodiscard]] Trouble TroubleFromWords(const std::string& words);

// The errno of a call that failed for this reason.
int ErrnoOf(TroubleKind kind);

}  // namespace vfs
