#include "core/config.h"

#include <unistd.h>

#include <functional>
#include <string_view>
#include <vector>

#include "scratch.h"

namespace {

constexpr std::string_view kFull = R"(# comment
[server]
listen = "[::1]:5051"
state = "/var/lib/fennox"
auth = "pam"
certificate = "/etc/c.pem"
key = "/etc/k.pem"

[[share]]
name = "photos"
path = "/srv/photos"
read = ["*"]
write = ["alice", "@family"]
restrict = ["no-change", "no-download"]
code_page = "ISO-8859-1"

[[share]]
name = "empty"
path = "/srv/empty"
read = []

[[remote]]
name = "nas2"
protocol = "sftp"
host = "192.0.2.7"
port = 22
user = "backup"
password_file = "/etc/nas2.pass"
known_hosts = "/etc/known_hosts"
path = "/srv"
max_connections = 4
connect_timeout = 7
mount = "/mnt/nas2"
users = ["bob"]

[[remote]]
name = "box"
protocol = "dropbox"
token_file = "/etc/box"
mount = "/mnt/box"

[[token]]
user = "alice"
file = "/etc/alice.token"

[bandwidth]
default = "20MB"

[copymove]
filebrowserxferlog = "yes"
finished_tasks_hours = 48
)";

class ConfigFile : public Scratch {
 protected:
  bool Load(std::string_view text) {
    Write("fennox.toml", std::string(text));
    return core::LoadConfig(At("fennox.toml"), &config_, &err_);
  }

  core::Config config_;
  std::string err_;
};

TEST_F(ConfigFile, IsReadWhole) {
  ASSERT_TRUE(Load(kFull)) << err_;
  EXPECT_EQ(config_.server.listen, "[::1]:5051");
  EXPECT_EQ(config_.server.auth, "pam");
  EXPECT_EQ(config_.server.key, "/etc/k.pem");
  ASSERT_EQ(config_.shares.size(), 2U);
  EXPECT_EQ(config_.shares[0].write, (std::vector<std::string>{"alice", "@family"}));
  EXPECT_EQ(config_.shares[0].restrictions, core::kNoChange | core::kNoDownload);
  EXPECT_EQ(config_.shares[0].code_page, "ISO-8859-1");
  EXPECT_TRUE(config_.shares[1].read.empty());
  ASSERT_EQ(config_.remotes.size(), 2U);
  EXPECT_EQ(config_.remotes[0].host, "192.0.2.7");
  EXPECT_EQ(config_.remotes[0].port, 22);
  EXPECT_EQ(config_.remotes[0].max_connections, 4);
  EXPECT_EQ(config_.remotes[0].connect_timeout, 7);
  EXPECT_EQ(config_.remotes[0].mount, "/mnt/nas2");
  EXPECT_EQ(config_.remotes[0].users, std::vector<std::string>{"bob"});
  EXPECT_EQ(config_.remotes[1].path, "/");
  ASSERT_EQ(config_.tokens.size(), 1U);
  EXPECT_EQ(config_.tokens[0].file, "/etc/alice.token");
  EXPECT_EQ(config_.bandwidth_default, 20000000U);
  EXPECT_EQ(config_.finished_tasks_hours, 48);
  EXPECT_EQ(config_.copymove, (std::vector<std::pair<std::string, std::string>>{
                                  {"filebrowserxferlog", "yes"}, {"finished_tasks_hours", "48"}}));
}

TEST_F(ConfigFile, DefaultsHoldForWhatIsNotThere) {
  ASSERT_TRUE(Load("[server]\nstate = \"/s\"\n[[share]]\nname = \"a b,ü\"\npath = \"/p\"\n"))
      << err_;
  EXPECT_EQ(config_.server.listen, "127.0.0.1:5050");
  EXPECT_EQ(config_.server.auth, "single");
  EXPECT_EQ(config_.shares[0].read, std::vector<std::string>{"*"});
  EXPECT_TRUE(config_.shares[0].write.empty());
  EXPECT_EQ(config_.shares[0].restrictions, 0);
  EXPECT_EQ(config_.bandwidth_default, 0U);
  EXPECT_EQ(config_.finished_tasks_hours, 24);
  EXPECT_TRUE(config_.copymove.empty());
}

// One line of the full file, replaced by another one that is wrong.
struct Fault {
  std::string_view good;
  std::string_view bad;
  std::string_view key;
};

constexpr Fault kFaults[] = {
    {"[server]", "[srver]", "srver"},
    {"[server]", "[[server]]", "server"},
    {"[server]", "color = 1\n[server]", "color"},
    {R"(auth = "pam")", R"(auth = "none")", "server.auth"},
    {R"(auth = "pam")", R"(Auth = "pam")", "server.Auth"},
    {R"(auth = "pam")", "auth = true", "server.auth"},
    {R"(state = "/var/lib/fennox")", R"(state = "var/lib")", "server.state"},
    {R"(state = "/var/lib/fennox")", "", "server.state"},
    {R"(key = "/etc/k.pem")", "", "server.key"},
    {R"(key = "/etc/k.pem")", R"(key = "k.pem")", "server.key"},
    {R"(listen = "[::1]:5051")", R"(listen = "5051")", "server.listen"},
    {R"(listen = "[::1]:5051")", R"(listen = "::1:5051")", "server.listen"},
    {R"(listen = "[::1]:5051")", R"(listen = ":5051")", "server.listen"},
    {R"(listen = "[::1]:5051")", R"(listen = "localhost:")", "server.listen"},
    {R"(listen = "[::1]:5051")", R"(listen = "localhost:65536")", "server.listen"},
    {R"(listen = "[::1]:5051")", R"(listen = "localhost:80x")", "server.listen"},
    {R"(name = "photos")", R"(name = "home")", "share.name"},
    {R"(name = "photos")", R"(name = "")", "share.name"},
    {R"(name = "photos")", "", "share.name"},
    {R"(name = "photos")", R"(name = "..")", "share.name"},
    {R"(name = "photos")", R"(name = "a/b")", "share.name"},
    {R"(name = "photos")", R"(name = "a\u0000b")", "share.name"},
    {R"(name = "empty")", R"(name = "photos")", "share.name"},
    {R"(path = "/srv/photos")", R"(path = "srv")", "share.path"},
    {R"(path = "/srv/photos")", "path = 7", "share.path"},
    {R"(read = ["*"])", R"(read = "*")", "share.read"},
    {R"(read = ["*"])", "read = [1]", "share.read"},
    {R"(read = ["*"])", R"(read = ["@"])", "share.read"},
    {R"("no-change", )", R"("no-chnge", )", "share.restrict"},
    {R"(code_page = "ISO-8859-1")", R"(code_page = "no-such-set")", "share.code_page"},
    {R"(name = "box")", R"(name = "nas2")", "remote.name"},
    {R"(protocol = "sftp")", R"(protocol = "gopher")", "remote.protocol"},
    {R"(host = "192.0.2.7")", "", "remote.host"},
    {R"(host = "192.0.2.7")", R"(host = "-oProxyCommand=x")", "remote.host"},
    {R"(user = "backup")", R"(user = "a\nb")", "remote.user"},
    {"port = 22", "port = 65536", "remote.port"},
    {"port = 22", "port = 99999999999", "remote.port"},
    {"port = 22", "port = 2.5", "remote.port"},
    {"max_connections = 4", "max_connections = -1", "remote.max_connections"},
    {"connect_timeout = 7", "connect_timeout = 31", "remote.connect_timeout"},
    {"max_connections = 4", "max_connection = 4", "remote.max_connection"},
    {R"(mount = "/mnt/nas2")", R"(mount = "mnt")", "remote.mount"},
    {R"(mount = "/mnt/box")", R"(mount = "auto")", "remote.mount"},
    {R"(mount = "/mnt/box")", "", "remote.mount"},
    {R"(file = "/etc/alice.token")", "", "token.file"},
    {R"(user = "alice")", R"(user = "")", "token.user"},
    {R"(default = "20MB")", R"(default = "20 XB")", "bandwidth.default"},
    {R"(default = "20MB")", "default = 20", "bandwidth.default"},
    {R"(filebrowserxferlog = "yes")", R"(filebrowserxferlog = "on")",
     "copymove.filebrowserxferlog"},
    {R"(filebrowserxferlog = "yes")", "filebrowserxferlog = true", "copymove.filebrowserxferlog"},
    {"finished_tasks_hours = 48", "finished_tasks_hours = 0", "copymove.finished_tasks_hours"},
    {"finished_tasks_hours = 48", "finished_tasks_hours = \"48\"", "copymove.finished_tasks_hours"},
};

TEST_F(ConfigFile, FaultsAreReportedWithFileLineAndKey) {
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(std::string(fault.bad) + " in the place of " + std::string(fault.good));
    std::string text(kFull);
    const std::size_t at = text.find("\n" + std::string(fault.good));
    const std::size_t start = at == std::string::npos ? text.find(fault.good) : at + 1;
    ASSERT_NE(start, std::string::npos);
    text.replace(start, fault.good.size(), fault.bad);
    config_.server.state = "/untouched";
    ASSERT_FALSE(Load(text));
    EXPECT_EQ(config_.server.state, "/untouched");
    EXPECT_NE(err_.find(": " + std::string(fault.key) + ": "), std::string::npos) << err_;
    // A missing key is reported at its table, a wrong one at its own line.
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<long>(start), '\n');
    const std::string place = At("fennox.toml") + ":" + std::to_string(line) + ": ";
    EXPECT_TRUE(fault.bad.empty() || err_.starts_with(place)) << err_;
    EXPECT_EQ(err_.find(At("fennox.toml") + ":"), 0U) << err_;
  }
}

TEST_F(ConfigFile, UnreadableTextIsAnErrorWithItsLine) {
  constexpr std::string_view kTexts[] = {"\n\nthis is not toml\n", "\n\n\"a\" = \n",
                                         "\na = 1\na = 2\n"};
  for (const auto text : kTexts) {
    EXPECT_FALSE(Load(text));
    EXPECT_EQ(err_.find(At("fennox.toml") + ":3: "), 0U) << err_;
  }
  EXPECT_FALSE(Load("a = \"\xFF\"\n"));
  EXPECT_FALSE(Load("a = " + std::string(100000, '[')));
  EXPECT_FALSE(core::LoadConfig(At("missing.toml"), &config_, &err_));
  EXPECT_NE(err_.find("missing.toml: No such file"), std::string::npos) << err_;
  EXPECT_FALSE(core::LoadConfig(path_, &config_, &err_));
}

TEST(CheckConfig, SaysWhichShareIsWrong) {
  core::Config config;
  config.server.state = "/s";
  config.shares.resize(2);
  config.shares[0].name = "good";
  config.shares[0].path = "/good";
  config.shares[1].name = "bad";
  config.shares[1].path = "relative";
  std::string err;
  EXPECT_FALSE(core::CheckConfig(config, &err));
  EXPECT_EQ(err, R"([share] "bad" path: "relative" is not an absolute path)");
  config.shares[1].path = "/bad";
  EXPECT_TRUE(core::CheckConfig(config, &err));
}

TEST(ParseByteAmount, KnowsUnitsAndFractions) {
  const std::pair<const char*, std::uint64_t> kRows[] = {
      {"0", 0},
      {"512", 512},
      {"512k", 512000},
      {"20MB", 20000000},
      {" 20 mb ", 20000000},
      {"1.5 GiB", 1610612736},
      {"0.001k", 1},
      {"1.9", 1},
      {"2Ti", 2199023255552},
      {"0.999999999TiB", 1099511626676},
      {"18446744073709551615", 18446744073709551615U},
  };
  for (const auto& [text, bytes] : kRows) {
    std::uint64_t out = 7;
    EXPECT_TRUE(core::ParseByteAmount(text, &out)) << text;
    EXPECT_EQ(out, bytes) << text;
  }
}

TEST(ParseByteAmount, RefusesWhatIsNoAmount) {
  for (const char* text : {"", " ", "MB", "-1", "+1", "1.", ".5", "1,5", "1 X", "1 MBB", "1 MiBs",
                           "1.0000000001k", "18446744073709551616", "18446744073709551615k",
                           "16777216.5TiB", "99999999999TB", "0x10", "1e3", "1 M B"}) {
    std::uint64_t out = 7;
    EXPECT_FALSE(core::ParseByteAmount(text, &out)) << text;
    EXPECT_EQ(out, 7U) << text;
  }
}

}  // namespace
