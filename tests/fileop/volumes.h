// Folders and real file systems that a test owns.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace fileop_test {

// A fresh folder, removed with all below it.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A file system in an image file, mounted for the test's duration.
class Volume {
 public:
  // `type`: ext4, xfs, btrfs, vfat or tmpfs; `options` as for mount.
  Volume(const std::string& type, unsigned megabytes, const std::string& options = "");
  ~Volume();
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;

  bool mounted() const { return mounted_; }
  std::string operator/(const std::string& name) const { return mount_ + "/" + name; }
  const std::string& path() const { return mount_; }

  // The volume as a power cut at this moment would leave it.
  std::string Snapshot() const;

  // Has an ext4 meet an error, which it answers as its options say.
  bool MeetError() const;

 private:
  Scratch scratch_;
  std::string image_;
  std::string mount_;
  bool mounted_ = false;
};

// Mounts a snapshot for reading what a restarted machine would see.
class Recovered {
 public:
  explicit Recovered(const std::string& image);
  ~Recovered();
  Recovered(const Recovered&) = delete;
  Recovered& operator=(const Recovered&) = delete;
  std::string operator/(const std::string& name) const { return mount_.path() + "/" + name; }

 private:
  Scratch mount_;
};

#define SKIP_UNLESS_ROOT() \
  if (::geteuid() != 0) GTEST_SKIP() << "needs root for file systems of its own"
#define SKIP_UNLESS_MOUNTED(volume) \
  if (!(volume).mounted()) GTEST_SKIP() << "this file system cannot be made here"

void Write(const std::string& path, const std::string& content);
std::string Read(const std::string& path);  // "(none)" when it cannot be read
// Equal content; two files that are not there are not equal.
bool SameContent(const std::string& a, const std::string& b);
std::string Pattern(std::size_t size, unsigned seed = 1);
void MakeFolder(const std::string& path);
bool Exists(const std::string& path);
struct stat StatOf(const std::string& path);  // all zero when there is nothing
std::vector<std::string> List(const std::string& folder);

// Every entry below the folder as one line: path, type, mode, size, times, links,
// attributes and a hash of the content. Folders' sizes and access times are left out.
std::vector<std::string> Describe(const std::string& folder);

// Names of unfinished files and folders anywhere below.
std::vector<std::string> Leftovers(const std::string& folder);

}  // namespace fileop_test
