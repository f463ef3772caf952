#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/open_socket.h"
#include "platform/wake_pipe.h"

namespace msp::test {

/// One HTTP request as it came in.
struct ReceivedRequest {
  std::string method;
  std::string target;
  /// Complete lines.
  std::vector<std::string> headers;
  std::string body;

  /// The value of the header, "" without one.
  [[nodiscard]] std::string header(std::string_view name) const {
    for (const auto& line : headers) {
      if (line.size() > name.size() + 1 && line[name.size()] == ':' &&
          strncasecmp(line.c_str(), name.data(), name.size()) == 0) {
        return line.substr(line.find_first_not_of(' ', name.size() + 1));
      }
    }
    return "";
  }
};

/// The text of an HTTP answer with a body of known length. `headers` are complete lines.
inline std::string httpAnswer(int status, const std::string& body,
                              const std::vector<std::string>& headers = {}) {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " Some Reason\r\n";
  for (const auto& header : headers) text += header + "\r\n";
  return text + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// The server's side of one connection. Every wait ends when the server is to stop.
class ServerConnection {
 public:
  ServerConnection(int socket, const WakePipe& stop) : socket_(socket), stop_(stop) {}

  /// The next request, or nothing when the connection ended.
  std::optional<ReceivedRequest> readRequest() {
    std::size_t headEnd = 0;
    while ((headEnd = received_.find("\r\n\r\n")) == std::string::npos) {
      if (!receive()) return std::nullopt;
    }
    ReceivedRequest request = parseHead(received_.substr(0, headEnd + 2));
    received_.erase(0, headEnd + 4);
    const std::string length = request.header("Content-Length");
    const std::size_t bodySize = length.empty() ? 0 : std::stoul(length);
    while (received_.size() < bodySize) {
      if (!receive()) return std::nullopt;
    }
    request.body = received_.substr(0, bodySize);
    received_.erase(0, bodySize);
    return request;
  }

  /// False when the connection ended first.
  bool write(std::string_view bytes) {
    while (!bytes.empty()) {
      if (!wait(POLLOUT)) return false;
      const ssize_t count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (count < 0 && errno != EAGAIN && errno != EINTR) return false;
      if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  /// Up to `most` more bytes of the current request.
  bool receive(std::size_t most = 65536) {
    if (!wait(POLLIN)) return false;
    std::string buffer(most, '\0');
    const ssize_t count = recv(socket_, buffer.data(), buffer.size(), 0);
    if (count <= 0) return false;
    received_.append(buffer, 0, static_cast<std::size_t>(count));
    return true;
  }
  [[nodiscard]] std::size_t unreadBytes() const { return received_.size(); }

  /// Says nothing until the client closes the connection.
  void hang() {
    while (receive()) {
    }
  }

  /// Lets time pass, as a slow server does.
  void linger(std::chrono::milliseconds time) {
    pollfd stop{stop_.readable(), POLLIN, 0};
    poll(&stop, 1, static_cast<int>(time.count()));
  }

 private:
  bool wait(short events) {
    pollfd entries[] = {{socket_, events, 0}, {stop_.readable(), POLLIN, 0}};
    while (poll(entries, 2, -1) < 0 && errno == EINTR) {
    }
    return entries[1].revents == 0 && entries[0].revents != 0;
  }

  static ReceivedRequest parseHead(const std::string& head) {
    ReceivedRequest request;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = head.find("\r\n", begin)) != std::string::npos; begin = end + 2) {
      request.headers.push_back(head.substr(begin, end - begin));
    }
    const std::string first = request.headers.at(0);
    request.headers.erase(request.headers.begin());
    request.method = first.substr(0, first.find(' '));
    const std::size_t target = request.method.size() + 1;
    request.target = first.substr(target, first.find(' ', target) - target);
    return request;
  }

  const int socket_;
  const WakePipe& stop_;
  std::string received_;
};

/// A server on 127.0.0.1 that does to each connection what the test says: answer, trickle, hang, break off.
///
/// Every connection has a thread of its own and is closed when the handler returns.
class LoopbackServer {
 public:
  using Handler = std::function<void(ServerConnection&)>;

  /// `receiveBuffer`: bytes the system may hold for a connection, where a test needs few.
  explicit LoopbackServer(Handler handler, int receiveBuffer = 0) : handler_(std::move(handler)) {
    listener_ = openSocket(AF_INET, SOCK_STREAM, 0);
    if (receiveBuffer > 0) setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    constexpr int kBacklog = 128;
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        listen(listener_, kBacklog) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("no loopback server");
    }
    port_ = ntohs(address.sin_port);
    acceptThread_ = std::thread([this] { acceptAll(); });
  }

  ~LoopbackServer() {
    stop_.signal();
    acceptThread_.join();
    for (auto& thread : connectionThreads_) thread.join();
    close(listener_);
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// A handler that gives each request the text that the function makes of it, and keeps the connection open.
  static Handler answering(std::function<std::string(const ReceivedRequest&)> answer) {
    return [answer = std::move(answer)](ServerConnection& connection) {
      while (const auto request = connection.readRequest()) {
        if (!connection.write(answer(*request))) return;
      }
    };
  }

  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] int acceptedConnections() const { return accepted_; }
  [[nodiscard]] std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const {
    return "http://" + host + ":" + std::to_string(port_) + path;
  }

 private:
  void acceptAll() {
    while (true) {
      pollfd entries[] = {{listener_, POLLIN, 0}, {stop_.readable(), POLLIN, 0}};
      poll(entries, 2, -1);
      if (entries[1].revents != 0) return;
      if (entries[0].revents == 0) continue;
      const int socket = accept(listener_, nullptr, nullptr);
      if (socket < 0) continue;
      ++accepted_;
      connectionThreads_.emplace_back([this, socket] {
        ServerConnection connection(socket, stop_);
        handler_(connection);
        close(socket);
      });
    }
  }

  const Handler handler_;
  WakePipe stop_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<int> accepted_ = 0;
  std::vector<std::thread> connectionThreads_;
  std::thread acceptThread_;
};

}  // namespace msp::test
