#include "server_program.h"

#include <fcntl.h>
#include <json/json.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <sstream>
#include <utility>

#include "core/unique_fd.h"

namespace {

void Run(const std::string& program, const std::vector<std::string>& options, int in, int out) {
  std::vector<std::string> words = {"/usr/bin/python3", SERVER_PROGRAMS "/" + program};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char*> args;
  args.reserve(words.size() + 1);
  for (std::string& word : words) args.push_back(word.data());
  args.push_back(nullptr);
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  execv(args[0], args.data());
  _exit(127);
}

// The processes below `parent`.
void Collect(pid_t parent, std::vector<pid_t>* found) {
  const std::string pid = std::to_string(parent);
  std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
  for (pid_t child = 0; children >> child;) {
    found->push_back(child);
    Collect(child, found);
  }
}

}  // namespace

bool ServerProgram::ReadFacts(int fd) {
  std::string text;
  std::array<char, 4096> buffer{};
  while (text.find('\n') == std::string::npos) {
    const ssize_t got = read(fd, buffer.data(), buffer.size());
    if (got <= 0) return false;
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
  Json::Value facts;
  std::istringstream stream(text);
  std::string problems;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &facts, &problems)) return false;
  server_ = facts["pid"].asInt();
  remote_ = {};
  remote_.name = "server";
  remote_.protocol = facts["protocol"].asString();
  remote_.host = facts["host"].asString();
  remote_.port = facts["port"].asInt();
  remote_.user = facts["user"].asString();
  remote_.password_file = facts["password_file"].asString();
  remote_.key_file = facts["key_file"].asString();
  remote_.known_hosts = facts["known_hosts"].asString();
  remote_.token_file = facts["token_file"].asString();
  remote_.ca_file = facts["ca_file"].asString();
  remote_.path = facts["root"].asString();
  return true;
}

bool ServerProgram::Start(const std::string& program, const std::vector<std::string>& options) {
  std::array<int, 2> in{};
  std::array<int, 2> out{};
  if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) return false;
  program_ = fork();
  if (program_ == 0) Run(program, options, in[0], out[1]);
  close(in[0]);
  close(out[1]);
  input_ = in[1];
  const core::UniqueFd facts(out[0]);
  if (ReadFacts(facts.get())) return true;
  Close();
  return false;
}

void ServerProgram::Close() {
  if (program_ <= 0) return;
  close(std::exchange(input_, -1));
  waitpid(std::exchange(program_, -1), nullptr, 0);
  server_ = -1;
}

void ServerProgram::Stop() {
  if (server_ <= 0) return;
  kill(server_, SIGSTOP);  // no new session while they are ended
  EndSessions();
  kill(std::exchange(server_, -1), SIGKILL);
}

void ServerProgram::EndSessions() const {
  for (const pid_t pid : Sessions()) kill(pid, SIGKILL);
}

std::vector<pid_t> ServerProgram::Sessions() const {
  std::vector<pid_t> found;
  if (server_ > 0) Collect(server_, &found);
  return found;
}

std::filesystem::path ServerProgram::own() const {
  std::string file = remote_.key_file;
  if (file.empty()) file = remote_.password_file;
  if (file.empty()) file = remote_.token_file;
  return std::filesystem::path(file).parent_path();
}
