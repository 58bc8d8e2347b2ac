// A server, a folder it serves, and hooks that watch a transfer.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cloud/cloud.h"
#include "server_program.h"
#include "tests/common/scratch.h"

// What the hooks saw of the transfers of this test.
struct Watch {
  std::uint64_t counted = 0;
  std::uint64_t asked = 0;
  bool stop = false;
  std::function<void()> at_half;  // runs once, when half of a file has moved
  std::uint64_t half = 0;
};
inline Watch watch;

int CountBytes(unsigned long long bytes, unsigned long long);
int ShallStop();
long long GrantSome(unsigned long long bytes);

constexpr std::size_t kBig = 10U << 20U;
constexpr std::size_t kLarger = 3 * kBig;  // more than connections hold by themselves
constexpr int kNoMoreConnections = 40;

std::string RandomText(std::size_t length);

// The path of an upload whose process has ended.
std::string AbandonedUploadBeside(const std::string& path);

class TransferTest : public testing::Test {
 protected:
  TransferTest();
  ~TransferTest() override;

  // Starts a server of "sftp", "ftp", "ftps" or "webdav" and opens it. False when it cannot run
  // here.
  bool StartServer(const std::string& protocol, std::vector<std::string> options = {});
  // Makes `remote` the configuration's one remote and opens it.
  void Use(core::RemoteConfig remote);
  [[nodiscard]] bool Upload(const std::string& name, const std::string& text);
  [[nodiscard]] bool Download(const std::string& name, std::uint64_t size, std::string* text);
  std::string Path(const std::string& name) const { return data_ / name; }
  // Names in the served folder, without what a killed server may leave of its own.
  std::vector<std::string> Names() const;
  // Requests that a WebDAV server has logged, by the words of their lines. It logs them a
  // moment after it has answered them, so `expected` many are waited for.
  int Requests(const std::string& words, int expected) const;
  // What must hold for every kind of server: both ways, every byte counted once, and the
  // hooks asked all along.
  void ExpectWholeFiles(const std::vector<std::size_t>& sizes);

  const TempFolder own_;
  const std::filesystem::path folder_ = own_.path();
  const std::filesystem::path data_ = folder_ / "data";
  ServerProgram server_;
  std::unique_ptr<TAVOCloud::Cloud> cloud_;
};
