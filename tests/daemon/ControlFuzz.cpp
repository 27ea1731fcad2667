// SPDX-License-Identifier: Apache-2.0
// What comes in at the control socket, as a fuzzer finds it: one service in this process, one
// connection for each input. The input is a client's bytes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "framework/log/LogService.h"
#include "host/service/ControlServer.h"
#include "host/store/MemoryStore.h"

namespace {

/// A service over a store in memory, without its plug-in.
struct Scene {
  Scene() {
    Kiv::LogService::sinkIs([](Kiv::LogMessage const&) {});
    service.turn(0);
  }
  ~Scene() { std::filesystem::remove_all(folder); }

  /// One event, if there is any.
  void step() {
    wake->timeIs(0);
    loop.step();
    service.turn(0);
    server.turnEnded();
  }

  std::filesystem::path const folder = [] {
    std::string name = (std::filesystem::temp_directory_path() / "control-fuzz.XXXXXX").string();
    return std::filesystem::path(::mkdtemp(name.data()));
  }();
  Host::EventLoop loop;
  Host::EventLoop::SourcePtr const wake = loop.timer([] {});
  Host::Service service{
      std::make_unique<Host::MemoryStore>(std::make_shared<Host::MemoryStoreContents>()),
      {nullptr, true},
      {folder / "none.so", folder, "model", "leaf1", "owner", false}};
  Host::ServiceCommands commands{service};
  Host::ControlServer server{
      loop, service, commands, Host::ControlServer::listen(folder / "c"), {}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Scene scene;
  Host::OwnedDescriptor client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (scene.folder / "c").native().copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    std::abort();
  }
  // No more than what the socket takes without a reader.
  (void)::send(client.get(), data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
  ::shutdown(client.get(), SHUT_WR);
  // The answers are read until the server closes the connection, or is waiting for something.
  constexpr int kIdle = 50;
  size_t received = 0;
  for (int idle = 0; idle < kIdle; ++idle) {
    scene.step();
    std::array<char, 65536> answers;
    ssize_t const read = ::recv(client.get(), answers.data(), answers.size(), MSG_DONTWAIT);
    if (read == 0) break;
    if (read < 0) continue;
    received += static_cast<size_t>(read);
    idle = 0;
  }
  if (received == 0) std::abort();  // not even the greeting
  client = Host::OwnedDescriptor();
  for (int step = 0; scene.server.clients() > 0; ++step) {
    if (step > 10'000) std::abort();  // it is served for ever
    scene.step();
  }
  return 0;
}
