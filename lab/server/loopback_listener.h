#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace msp::lab {

/// Lets an HTTP server listen on a loopback address in a thread of its own, with one thread per connection,
/// so that neither an idle connection nor a held answer delays another.
///
/// Not for two threads at once, but for `connections()`.
class LoopbackListener {
 public:
  LoopbackListener() = default;
  ~LoopbackListener() { stop(); }
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  /// Listens; connections are accepted from here on. `port` 0 is any free one. False when the address or
  /// port cannot be had, for instance since another program listens there. `server` must outlive stop().
  ///
  /// `whenCut` is called by stop() once no connection works any more: it should end the handlers that wait.
  [[nodiscard]] bool start(
      httplib::Server& server, const std::string& address, int port,
      const std::function<void()>& whenCut = [] {});

  /// Cuts every connection, idle ones too, and waits for the handlers that are under way.
  void stop();

  /// The port listened on; after stop() the last one, 0 before the first start.
  [[nodiscard]] int port() const { return port_; }

  /// How many connections were accepted so far, over all starts.
  [[nodiscard]] std::size_t connections() const { return accepted_; }

 private:
  httplib::Server* server_ = nullptr;
  std::thread thread_;
  int port_ = 0;
  std::atomic<std::size_t> accepted_ = 0;
};

}  // namespace msp::lab
