#include "server/loopback_listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <functional>
#include <future>
#include <list>
#include <utility>

namespace msp::lab {
namespace {

// An agent that checks in every 30 seconds or less often keeps its connections.
constexpr int kKeepAliveSeconds = 3600;
constexpr std::size_t kKeepAliveRequests = 1'000'000;
constexpr int kBacklog = 128;

/// Ends one connection if `descriptor` is one that was accepted at `address` and `port`. Works on a
/// duplicate, so that what is examined and what is shut down are the same even when the number is reused
/// meanwhile.
void shutDownIfAccepted(int descriptor, const in_addr& address, int port) {
  const int duplicate = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (duplicate < 0) return;
  sockaddr_in local{};
  sockaddr_storage peer{};
  socklen_t localSize = sizeof local;
  socklen_t peerSize = sizeof peer;
  if (getsockname(duplicate, reinterpret_cast<sockaddr*>(&local), &localSize) == 0 &&
      local.sin_family == AF_INET && local.sin_addr.s_addr == address.s_addr &&
      ntohs(local.sin_port) == port &&
      getpeername(duplicate, reinterpret_cast<sockaddr*>(&peer), &peerSize) == 0)
    shutdown(duplicate, SHUT_RDWR);
  close(duplicate);
}

/// The HTTP library keeps its sockets to itself and leaves an idle connection only after its keep-alive
/// time; so the connections are found among the process's descriptors.
void shutDownAccepted(const std::string& address, int port) {
  in_addr number{};
  if (inet_pton(AF_INET, address.c_str(), &number) != 1) return;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/dev/fd", error)) {
    const std::string name = entry.path().filename();
    int descriptor = -1;
    std::from_chars(name.data(), name.data() + name.size(), descriptor);
    if (descriptor >= 0) shutDownIfAccepted(descriptor, number, port);
  }
}

/// One thread per connection. Used by the accepting thread alone.
class ConnectionThreads : public httplib::TaskQueue {
 public:
  ConnectionThreads(std::atomic<std::size_t>& accepted, std::function<void()> cutConnections)
      : accepted_(accepted), cutConnections_(std::move(cutConnections)) {}

  // Newer versions of the library want to hear whether the connection was taken.
  using Enqueued = decltype(std::declval<httplib::TaskQueue&>().enqueue(nullptr));

  Enqueued enqueue(std::function<void()> serve) override {
    ++accepted_;
    connections_.remove_if([](Connection& connection) { return connection.ended.load(); });
    Connection& connection = connections_.emplace_back();
    connection.thread = std::thread([&connection, serve = std::move(serve)] {
      serve();
      connection.ended = true;
    });
    return Enqueued(true);
  }

  void shutdown() override {
    cutConnections_();
    connections_.clear();
  }

 private:
  struct Connection {
    Connection() = default;
    ~Connection() { thread.join(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    std::atomic<bool> ended = false;
    std::thread thread;
  };

  std::atomic<std::size_t>& accepted_;
  std::function<void()> cutConnections_;
  std::list<Connection> connections_;
};

}  // namespace

bool LoopbackListener::start(httplib::Server& server, const std::string& address, int port,
                             const std::function<void()>& whenCut) {
  if (thread_.joinable()) return false;
  const auto listening = std::make_shared<int>(-1);
  // The library's own options let two servers share one port.
  server.set_socket_options([listening](int descriptor) {
    const int yes = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    *listening = descriptor;
  });
  server.set_tcp_nodelay(true);
  server.set_keep_alive_timeout(kKeepAliveSeconds);
  server.set_keep_alive_max_count(kKeepAliveRequests);
  if (port == 0) {
    port = server.bind_to_any_port(address);
    if (port <= 0) return false;
  } else if (!server.bind_to_port(address, port)) {
    return false;
  }
  // The library's queue of 5 makes the sixth of a burst of connections wait for a second.
  ::listen(*listening, kBacklog);

  const auto accepting = std::make_shared<std::promise<void>>();
  server.new_task_queue = [this, address, port, accepting, whenCut]() -> httplib::TaskQueue* {
    auto threads = std::make_unique<ConnectionThreads>(accepted_, [address, port, whenCut] {
      shutDownAccepted(address, port);
      whenCut();
    });
    accepting->set_value();
    return threads.release();
  };
  port_ = port;
  server_ = &server;
  thread_ = std::thread([&server] { server.listen_after_bind(); });
  // Before this point the server does not know that it runs, and stop() would go unheard.
  accepting->get_future().wait();
  return true;
}

void LoopbackListener::stop() {
  if (!thread_.joinable()) return;
  server_->stop();
  thread_.join();
}

}  // namespace msp::lab
