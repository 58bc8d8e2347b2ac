#include "vfs/trouble.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <string_view>

namespace vfs {
namespace {

struct KindFacts {
  TroubleKind kind;
  const char* name;
  int system;
};

constexpr std::array<KindFacts, 11> kKinds{{
    {TroubleKind::kNone, "", 0},
    {TroubleKind::kNotResolved, "cannot resolve the server's name", EHOSTUNREACH},
    {TroubleKind::kRefused, "connection refused", ECONNREFUSED},
    {TroubleKind::kTimedOut, "timed out", ETIMEDOUT},
    {TroubleKind::kUnreachable, "server not reachable", EHOSTDOWN},
    {TroubleKind::kLoginFailed, "login failed", EACCES},
    {TroubleKind::kHostKey, "host key unknown", EACCES},
    {TroubleKind::kCertificate, "certificate not trusted", EACCES},
    {TroubleKind::kNoFolder, "no such path on the server", ENOENT},
    {TroubleKind::kNotAvailable, "not available on this machine", EOPNOTSUPP},
    {TroubleKind::kOther, "failed", EIO},
}};

struct Sign {
  const char* words;  // in small letters
  TroubleKind kind;
};

// The first that occurs decides: a general one comes after those that say more.
constexpr std::array<Sign, 41> kSigns{{
    {"host key verification failed", TroubleKind::kHostKey},
    {"host key mismatch", TroubleKind::kHostKey},
    {"ssh remote key was not ok", TroubleKind::kHostKey},
    {"host key is known", TroubleKind::kHostKey},
    {"known_hosts", TroubleKind::kHostKey},
    {"could not resolve", TroubleKind::kNotResolved},
    {"couldn't resolve", TroubleKind::kNotResolved},
    {"name or service not known", TroubleKind::kNotResolved},
    {"temporary failure in name resolution", TroubleKind::kNotResolved},
    {"no such host", TroubleKind::kNotResolved},
    {"certificate", TroubleKind::kCertificate},
    {"x509", TroubleKind::kCertificate},
    {"peer failed verification", TroubleKind::kCertificate},
    {"connection refused", TroubleKind::kRefused},
    {"timed out", TroubleKind::kTimedOut},
    {"timeout was reached", TroubleKind::kTimedOut},
    {"connection timeout", TroubleKind::kTimedOut},
    {"i/o timeout", TroubleKind::kTimedOut},
    {"deadline exceeded", TroubleKind::kTimedOut},
    {"permission denied (", TroubleKind::kLoginFailed},
    {"access denied: 530", TroubleKind::kLoginFailed},
    {"login denied", TroubleKind::kLoginFailed},
    {"login incorrect", TroubleKind::kLoginFailed},
    {"authentication fail", TroubleKind::kLoginFailed},
    {"unauthorized", TroubleKind::kLoginFailed},
    {"too many authentication failures", TroubleKind::kLoginFailed},
    {" 530 ", TroubleKind::kLoginFailed},
    {"401", TroubleKind::kLoginFailed},
    {"no such file", TroubleKind::kNoFolder},
    {"failed to change directory", TroubleKind::kNoFolder},
    {"server denied you to change", TroubleKind::kNoFolder},
    {"directory not found", TroubleKind::kNoFolder},
    {"not a directory", TroubleKind::kNoFolder},
    {"no route to host", TroubleKind::kUnreachable},
    {"network is unreachable", TroubleKind::kUnreachable},
    {"connection reset", TroubleKind::kUnreachable},
    {"connection closed", TroubleKind::kUnreachable},
    {"couldn't connect", TroubleKind::kUnreachable},
    {"failed to connect", TroubleKind::kUnreachable},
    {"failure establishing ssh session", TroubleKind::kUnreachable},
    {"fuse", TroubleKind::kNotAvailable},
}};

const KindFacts& FactsOf(TroubleKind kind) {
  return *std::find_if(kKinds.begin(), kKinds.end(),
                       [kind](const KindFacts& facts) { return facts.kind == kind; });
}

}  // namespace

const char* NameOf(TroubleKind kind) { return FactsOf(kind).name; }

int ErrnoOf(TroubleKind kind) { return FactsOf(kind).system; }

Trouble TroubleFromWords(const std::string& words) {
  std::string small = words;
  std::transform(small.begin(), small.end(), small.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto* sign = std::find_if(kSigns.begin(), kSigns.end(), [&](const Sign& candidate) {
    return small.find(candidate.words) != std::string::npos;
  });
  return {sign == kSigns.end() ? TroubleKind::kOther : sign->kind, words};
}

}  // namespace vfs
