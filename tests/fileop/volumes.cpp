#include "volumes.h"

#include <dirent.h>
#include <stdlib.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>

namespace fileop_test {
namespace {

bool Run(const std::string& command) {
  return std::system(("PATH=$PATH:/usr/sbin:/sbin; " + command + " >/dev/null 2>&1").c_str()) == 0;
}

std::string Attributes(const std::string& path) {
  char names[4096];
  const ssize_t size = ::llistxattr(path.c_str(), names, sizeof names);
  std::string all;
  for (ssize_t at = 0; at < size;) {
    const std::string name = names + at;
    char value[4096];
    const ssize_t length = ::lgetxattr(path.c_str(), name.c_str(), value, sizeof value);
    all += " " + name + "=" +
           std::string(value, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    at += static_cast<ssize_t>(name.size()) + 1;
  }
  return all;
}

void DescribeInto(const std::string& folder, const std::string& below,
                  std::vector<std::string>* lines) {
  for (const std::string& name : List(folder)) {
    const std::string path = folder + "/" + name;
    const struct stat st = StatOf(path);
    std::ostringstream line;
    line << below << name << std::oct << " " << st.st_mode << std::dec << " links "
         << (S_ISDIR(st.st_mode) ? 0 : st.st_nlink) << " rdev " << st.st_rdev << " mtime "
         << st.st_mtim.tv_sec << "." << st.st_mtim.tv_nsec;
    if (S_ISREG(st.st_mode)) {
      line << " size " << st.st_size << " hash " << std::hash<std::string>{}(Read(path));
    } else if (S_ISLNK(st.st_mode)) {
      line << " -> " << std::filesystem::read_symlink(path).string();
    }
    lines->push_back(line.str() + Attributes(path));
    if (S_ISDIR(st.st_mode)) DescribeInto(path, below + name + "/", lines);
  }
}

}  // namespace

Scratch::Scratch() {
  const char* base = std::getenv("TMPDIR");
  path_ = std::string(base == nullptr ? "/tmp" : base) + "/fileop-test-XXXXXX";
  if (::mkdtemp(path_.data()) == nullptr) std::abort();
}

Scratch::~Scratch() {
  // Deep trees and unreadable folders included.
  Run("chmod -R u+rwx " + path_ + "; rm -rf " + path_);
}

Volume::Volume(const std::string& type, unsigned megabytes, const std::string& options)
    : image_(scratch_ / "image"), mount_(scratch_ / "mount") {
  MakeFolder(mount_);
  const std::string size = std::to_string(megabytes) + "M";
  if (type == "tmpfs") {
    mounted_ = Run("mount -t tmpfs -o size=" + size + " tmpfs " + mount_);
    return;
  }
  mounted_ =
      Run("truncate -s " + size + " " + image_) && Run("mkfs." + type + " " + image_) &&
      Run("mount -o loop" + (options.empty() ? "" : "," + options) + " " + image_ + " " + mount_);
  if (mounted_ && type == "ext4") ::rmdir((mount_ + "/lost+found").c_str());
}

Volume::~Volume() {
  if (mounted_ && !Run("umount " + mount_)) Run("umount -l " + mount_);
}

std::string Volume::Snapshot() const {
  const std::string copy = scratch_ / ("snapshot" + std::to_string(List(scratch_.path()).size()));
  Run("cp --sparse=always " + image_ + " " + copy);
  return copy;
}

bool Volume::MeetError() const {
  const dev_t device = StatOf(mount_).st_dev;
  const std::string link =
      "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
  const std::string loop = std::filesystem::read_symlink(link).filename();
  std::ofstream trigger("/sys/fs/ext4/" + loop + "/trigger_fs_error");
  trigger << "provoked" << std::flush;
  return trigger.good();
}

Recovered::Recovered(const std::string& image) {
  Run("mount -o loop " + image + " " + mount_.path());
}

Recovered::~Recovered() { Run("umount " + mount_.path()); }

void Write(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::string Read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "(none)";
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

bool SameContent(const std::string& a, const std::string& b) {
  const std::string content = Read(a);
  return content != "(none)" && content == Read(b);
}

std::string Pattern(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; i += 4) {
    const std::uint32_t word = random();
    for (std::size_t j = i; j < std::min(size, i + 4); ++j) {
      text[j] = static_cast<char>(word >> (8 * (j - i)));
    }
  }
  return text;
}

void MakeFolder(const std::string& path) { std::filesystem::create_directories(path); }

bool Exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

struct stat StatOf(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) st = {};
  return st;
}

std::vector<std::string> List(const std::string& folder) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  if (dir == nullptr) return names;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Describe(const std::string& folder) {
  std::vector<std::string> lines;
  DescribeInto(folder, "", &lines);
  return lines;
}

std::vector<std::string> Leftovers(const std::string& folder) {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().filename();
    if (name.starts_with(".fennox-")) found.push_back(entry.path());
  }
  return found;
}

}  // namespace fileop_test
