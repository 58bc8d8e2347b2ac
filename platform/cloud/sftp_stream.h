// A file's data on its way to or from an SFTP server, many requests at a time.
#pragma once

#include <cstdint>
#include <string>

#include "flow.h"
#include "sftp_channel.h"

namespace TAVOCloud {

// What is known of an upload from one attempt to the next.
struct SftpUpload {
  std::string path;
  bool dated = false;       // it gets the times of its source, if the server takes them
  bool begun = false;       // an attempt has been made
  std::uint64_t taken = 0;  // bytes that the server has confirmed, from the start on
};

// Writes the flow's data into a file of that path, from where an earlier attempt has come to. Done
// when the server has told that the file has the size of the flow, and has closed it.
SshOutcome SendFile(SftpChannel* channel, SftpUpload* upload, Flow* flow);

// What is known of a download from one attempt to the next.
struct SftpDownload {
  std::string path;
  bool begun = false;
  std::uint32_t changed = 0;  // when the file was, at the first attempt
};

// Gives `flow` a file's data from its place on. kChanged when the file has not the flow's size, or
// is not the one that the first attempt has seen.
SshOutcome FetchFile(SftpChannel* channel, SftpDownload* download, Flow* flow);

}  // namespace TAVOCloud
