// SPDX-License-Identifier: Apache-2.0
#include "tests/host/store/RedisServer.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace BfnTest {

bool RedisServer::isThere() {
  char const* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (::access((folder + "/redis-server").c_str(), X_OK) == 0) return true;
  }
  return false;
}

void RedisServer::start() {
  std::string const data = directory_.file("data");
  std::filesystem::create_directories(data);
  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  server_ = ::fork();
  if (server_ < 0) std::abort();
  if (server_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when the test is ended
    ::dup2(ends[1], STDOUT_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[0]);
    ::close(ends[1]);
    ::execlp("redis-server", "redis-server", "--port", "0", "--unixsocket", socket().c_str(),
             "--dir", data.c_str(), "--save", "", "--appendonly", "yes", "--appendfsync", "no",
             "--daemonize", "no", "--enable-debug-command", "yes", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(ends[1]);
  std::FILE* const log = ::fdopen(ends[0], "r");
  char line[1024];
  std::string said;
  bool ready = false;
  while (!ready && std::fgets(line, sizeof line, log) != nullptr) {
    said += line;
    ready = std::string(line).find("ready to accept connections") != std::string::npos ||
            std::string(line).find("now ready") != std::string::npos;
  }
  // The server goes on without a reader of its log.
  std::fclose(log);
  if (ready) return;
  std::cerr << "redis-server does not start:\n" << said;
  std::abort();
}

void RedisServer::stop() {
  if (server_ < 0) return;
  ::kill(server_, SIGKILL);  // what it answered has been written
  ::waitpid(server_, nullptr, 0);
  server_ = -1;
}

void RedisServer::pause() {
  ::kill(server_, SIGSTOP);
}

void RedisServer::resume() {
  ::kill(server_, SIGCONT);
}

void RedisServer::save() {
  stop();
  std::filesystem::remove_all(directory_.file("saved"));
  std::filesystem::copy(directory_.file("data"), directory_.file("saved"),
                        std::filesystem::copy_options::recursive);
  start();
}

void RedisServer::restore() {
  stop();
  std::filesystem::remove_all(directory_.file("data"));
  std::filesystem::copy(directory_.file("saved"), directory_.file("data"),
                        std::filesystem::copy_options::recursive);
  start();
}

}  // namespace BfnTest
