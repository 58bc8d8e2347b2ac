// Remote mounts on local folders, in the place of the mount library's.
#pragma once

#include <string>
#include <vector>

#include "vfs/vfs.h"

struct FakeMount {
  vfs::MountInfo info;
  bool enableCurl = true;
};

inline std::vector<FakeMount> fakeMounts;

// Mounts PROTOCOL://NAME/ on a folder. The name "plain" stands for a protocol
// that the cloud library does not serve, "odd" for one without a description.
FakeMount& AddMount(const std::string& protocol, const std::string& name,
                    const std::string& folder);
