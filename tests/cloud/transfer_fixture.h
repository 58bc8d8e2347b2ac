// A server, a folder it serves, and hooks that watch a transfer.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "cloud/cloud.h"
#include "servers.h"

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

std::string RandomText(std::size_t length);
std::string ReadAll(const std::filesystem::path& path);

class TransferTest : public testing::Test {
 protected:
  TransferTest();
  ~TransferTest() override;

  // Starts a server of the protocol. False when it cannot run here.
  bool StartServer(const std::string& protocol);
  // Makes `remote` the configuration's one remote and opens it.
  void Use(core::RemoteConfig remote);
  [[nodiscard]] bool Upload(const std::string& name, const std::string& text);
  [[nodiscard]] bool Download(const std::string& name, std::uint64_t size, std::string* text);
  std::string Path(const std::string& name) const { return data_ / name; }
  // Names in the served folder.
  std::vector<std::string> Names() const;

  std::filesystem::path folder_;
  std::filesystem::path data_;
  std::unique_ptr<Server> server_;
  std::unique_ptr<TAVOCloud::Cloud> cloud_;
};
