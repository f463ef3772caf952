// download_benchmark <directory>
//
// Carries out the job that downloads a file, of 1 GiB, into the directory, from a server in a process of its
// own. Prints by how much the highest resident memory then is above what it was after a download of 1 MiB:
// download_resident_growth_kib, a blank, the figure. The files are removed.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "jobs/jobs_manager.h"
#include "platform/console.h"
#include "platform/curl_http_client.h"
#include "platform/host.h"
#include "platform/open_socket.h"

namespace msp::bench {
namespace {

bool sendAll(int connection, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Answers each request for "/<number>" with so many zeros, one connection after the other.
[[noreturn]] void serveZeros(int listener) {
  constexpr unsigned kPatience = 600;  // seconds: it ends also when nobody ends it
  alarm(kPatience);
  const std::string zeros(std::size_t{64} * 1024, '\0');
  while (true) {
    const int connection = accept(listener, nullptr, nullptr);
    if (connection < 0) continue;
    std::string request;
    std::vector<char> buffer(zeros.size());
    while (true) {
      const ssize_t count = recv(connection, buffer.data(), buffer.size(), 0);
      if (count <= 0) break;
      request.append(buffer.data(), static_cast<std::size_t>(count));
      if (request.find("\r\n\r\n") == std::string::npos) continue;
      std::size_t left = std::stoull(request.substr(request.find('/') + 1));
      request.clear();
      bool goesOn =
          sendAll(connection, "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(left) + "\r\n\r\n");
      while (goesOn && left > 0) {
        const std::size_t piece = std::min(left, zeros.size());
        goesOn = sendAll(connection, std::string_view(zeros).substr(0, piece));
        left -= piece;
      }
      if (!goesOn) break;
    }
    close(connection);
  }
}

/// The server's process; killed with this object.
class ZeroServer {
 public:
  /// To be made before any thread.
  ZeroServer() {
    const int listener = openSocket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      fatalError("the server cannot listen");
    }
    port_ = ntohs(address.sin_port);
    process_ = fork();
    if (process_ < 0) fatalError("the server cannot be started");
    if (process_ == 0) serveZeros(listener);
    close(listener);
  }
  ~ZeroServer() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  ZeroServer(const ZeroServer&) = delete;
  ZeroServer& operator=(const ZeroServer&) = delete;

  [[nodiscard]] std::string url(std::uintmax_t size) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + std::to_string(size);
  }

 private:
  int port_ = 0;
  pid_t process_ = -1;
};

/// What proc(5) says of this process's memory under a name, in KiB.
long memoryFigure(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  fatalError("/proc/self/status says nothing of " + name);
}

/// Nothing, or what went wrong.
std::string download(const JobsManager& jobs, const std::string& url, const std::string& path,
                     std::uintmax_t size) {
  const Json arguments{{"url", url}, {"file_name", path}};
  const Job job{{"id", "1"}, {"type", "download_file_from_url"}, {"arguments", arguments.dump()}};
  std::promise<JobResult> ended;
  jobs.downloadFile(job, [&](JobResult result) { ended.set_value(std::move(result)); });
  const JobResult result = ended.get_future().get();
  std::error_code error;
  const std::uintmax_t arrived = std::filesystem::file_size(path, error);
  std::filesystem::remove(path, error);
  if (result.success != 1) return result.message;
  return arrived == size ? "" : "the file has " + std::to_string(arrived) + " bytes";
}

int run(const std::string& directory) {
  constexpr std::uintmax_t kSmall = std::uintmax_t{1} << 20, kLarge = std::uintmax_t{1} << 30;
  const ZeroServer server;
  initializeHttp();
  HttpSurroundings surroundings;
  surroundings.temporaryDirectory = directory;
  CurlHttpClient http(std::move(surroundings));
  const JobsManager jobs(systemHost(), http);
  const std::string path = directory + "/download";

  std::string problem = download(jobs, server.url(kSmall), path, kSmall);
  const long before = memoryFigure("VmRSS");
  if (problem.empty()) problem = download(jobs, server.url(kLarge), path, kLarge);
  if (!problem.empty()) {
    std::fprintf(stderr, "download_benchmark: %s\n", problem.c_str());
    return 1;
  }
  std::printf("download_resident_growth_kib %ld\n", memoryFigure("VmHWM") - before);
  return 0;
}

}  // namespace
}  // namespace msp::bench

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: download_benchmark <directory>\n", stderr);
    return 2;
  }
  return msp::bench::run(argv[1]);
}
