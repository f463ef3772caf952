#include "platform/name_lookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <exception>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "platform/background_thread.h"
#include "platform/mutex.h"

namespace msp {
namespace {

std::optional<std::string> numericAddress(const addrinfo& entry) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void* address = nullptr;
  sockaddr_in v4{};
  sockaddr_in6 v6{};
  if (entry.ai_family == AF_INET) {
    std::memcpy(&v4, entry.ai_addr, sizeof v4);
    address = &v4.sin_addr;
  } else if (entry.ai_family == AF_INET6) {
    std::memcpy(&v6, entry.ai_addr, sizeof v6);
    address = &v6.sin6_addr;
  } else {
    return std::nullopt;
  }
  if (inet_ntop(entry.ai_family, address, text.data(), text.size()) == nullptr) return std::nullopt;
  return text.data();
}

}  // namespace

LookupAnswer resolveHost(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  const int code = getaddrinfo(host.c_str(), nullptr, &hints, &first);
  const int systemError = errno;
  if (code != 0) {
    return {
        {},
        code == EAI_SYSTEM ? std::generic_category().message(systemError) : std::string(gai_strerror(code))};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(first, &freeaddrinfo);
  LookupAnswer answer;
  for (const addrinfo* entry = first; entry != nullptr; entry = entry->ai_next) {
    if (auto address = numericAddress(*entry)) answer.addresses.push_back(std::move(*address));
  }
  if (answer.addresses.empty()) answer.error = "no address";
  return answer;
}

struct NameLookup::State {
  State(Resolver hostResolver, Sink answerSink)
      : resolver(std::move(hostResolver)), sink(std::move(answerSink)) {}

  /// The next host, or nothing: then the thread that asked is to end.
  std::optional<std::string> takeNext() {
    const MutexLock lock(mutex);
    if (queue.empty()) {
      --threads;
      return std::nullopt;
    }
    std::string host = std::move(queue.front());
    queue.pop_front();
    running.insert(host);
    return host;
  }

  void finish(const std::string& host, LookupAnswer answer) {
    const MutexLock lock(mutex);
    running.erase(host);
    if (sink) sink(host, std::move(answer));
  }

  LookupAnswer resolve(const std::string& host) const {
    try {
      return resolver(host);
    } catch (const std::exception& error) {
      return {{}, error.what()};
    }
  }

  const Resolver resolver;
  Mutex mutex;
  Sink sink MSP_GUARDED_BY(mutex);
  std::deque<std::string> queue MSP_GUARDED_BY(mutex);
  std::set<std::string> running MSP_GUARDED_BY(mutex);
  std::size_t threads MSP_GUARDED_BY(mutex) = 0;
};

NameLookup::NameLookup(Resolver resolver, Sink sink)
    : state_(std::make_shared<State>(std::move(resolver), std::move(sink))) {}

NameLookup::~NameLookup() {
  const MutexLock lock(state_->mutex);
  state_->sink = nullptr;
  state_->queue.clear();
}

void NameLookup::start(const std::string& host) {
  State& state = *state_;
  const MutexLock lock(state.mutex);
  if (state.running.contains(host) ||
      std::find(state.queue.begin(), state.queue.end(), host) != state.queue.end()) {
    return;
  }
  state.queue.push_back(host);
  if (state.threads == kMostThreads) return;
  const bool started = startBackgroundThread("name-lookup", [shared = state_] {
    while (const auto next = shared->takeNext()) shared->finish(*next, shared->resolve(*next));
  });
  if (started) {
    ++state.threads;
  } else if (state.threads == 0) {
    state.queue.pop_back();
    state.sink(host, {{}, "no thread for the look-up"});
  }
}

void NameLookup::forget(const std::string& host) {
  const MutexLock lock(state_->mutex);
  std::erase(state_->queue, host);
}

}  // namespace msp
