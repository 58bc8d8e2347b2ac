// How something that was asked of a server over SSH ended.
#pragma once

#include <cstdint>
#include <string>

namespace TAVOCloud {

struct SshOutcome {
  enum class End {
    kDone,
    kStatus,      // the server said no, for the reason in `status`
    kNoAddress,   // the server's name has none
    kNotReached,  // no connection to it could be made
    kNoMore,      // it hung up before it said who it is
    kNotLetIn,    // its key is not the known one, or it took no login
    kLost,        // the connection broke
    kSilent,      // no answer came in time
    kStopped,     // it was told to stop, or failed on this side
    kNonsense,    // the answer is none that was asked for
    kChanged,     // the file is not the one that it was
  };

  End end = End::kDone;
  std::uint32_t status = 0;  // an SftpStatus
  int os_error = 0;          // errno of a connection that could not be made
  bool fresh = false;        // a connection was opened for it
  std::string words;         // for people; holds no secret

  bool ok() const { return end == End::kDone; }
};

}  // namespace TAVOCloud
