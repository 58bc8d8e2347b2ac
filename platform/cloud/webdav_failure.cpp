#include "webdav_failure.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "core/error.h"

namespace TAVOCloud {
namespace {

struct Meaning {
  long status;
  int system;  // errno
  bool passing;
  const char* words;
};

constexpr std::array kMeanings{
    Meaning{401, EACCES, false, "the server refuses the user name or the password"},
    Meaning{403, EACCES, false, "the server does not permit it"},
    Meaning{404, ENOENT, false, "there is no such file or folder on the server"},
    Meaning{405, EOPNOTSUPP, false, "the server does not offer this request there"},
    Meaning{408, ETIMEDOUT, true, "the server has waited too long for data"},
    Meaning{409, ENOENT, false, "the folder does not exist on the server"},
    Meaning{410, ENOENT, false, "the file or folder is gone from the server"},
    Meaning{412, EEXIST, false, "the name is taken on the server"},
    Meaning{413, EFBIG, false, "the file is too large for the server"},
    Meaning{414, ENAMETOOLONG, false, "the name is too long for the server"},
    Meaning{416, EIO, false, "the file has another size on the server"},
    Meaning{423, EACCES, false, "the file or folder is locked on the server"},
    Meaning{429, EBUSY, true, "the server has too many requests"},
    Meaning{500, EIO, true, "the server has failed"},
    Meaning{501, EOPNOTSUPP, false, "the server does not know this request"},
    Meaning{502, EHOSTDOWN, true, "the server behind the server does not answer"},
    Meaning{503, EBUSY, true, "the server cannot serve one more request now"},
    Meaning{504, EHOSTDOWN, true, "the server behind the server does not answer"},
    Meaning{507, ENOSPC, false, "the server has no space left"},
};

const Meaning* Find(long status) {
  const auto* found = std::find_if(kMeanings.begin(), kMeanings.end(),
                                   [&](const Meaning& one) { return one.status == status; });
  return found == kMeanings.end() ? nullptr : found;
}

}  // namespace

Failure ExplainWebDav(const WebDavAnswer& answer) {
  if (answer.changed) return {EIO, core::kErrInputOutput, answer.code, false};
  if (!answer.ok()) return Explain(answer);
  const int status = static_cast<int>(answer.response);
  const Meaning* meaning = Find(answer.response);
  if (meaning == nullptr) return {EIO, core::kErrInputOutput, status, false};
  // It takes the connection and will not serve it: the one way in which web servers
  // say that there are enough already.
  if (meaning->system == EBUSY) {
    return {EBUSY, core::kErrHostDown, answer.unserved ? kNoMoreConnections : status, true};
  }
  return {meaning->system, core::ErrorFromErrno(meaning->system), status, meaning->passing};
}

std::string WordsOf(const WebDavAnswer& answer) {
  if (!answer.ok() || answer.changed) return answer.words;
  const Meaning* meaning = Find(answer.response);
  return std::string(meaning == nullptr ? "the server refuses it" : meaning->words) + " (status " +
         std::to_string(answer.response) + ")";
}

}  // namespace TAVOCloud
