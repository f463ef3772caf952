#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace msp {

/// What became of a host name: its addresses in numbers, best first, or the reason why there are none.
struct LookupAnswer {
  std::vector<std::string> addresses;
  std::string error;
};

/// Finds a host's addresses on the calling thread, for as long as that takes.
using Resolver = std::function<LookupAnswer(const std::string& host)>;

/// The system's own resolver, getaddrinfo(3).
LookupAnswer resolveHost(const std::string& host);

/// Looks host names up in the background.
///
/// A resolver may hang for minutes and cannot be stopped, so it runs on threads of its own, at most
/// `kMostThreads` of them, which live only while there are names to look up; further names wait for their
/// turn. A name asked for again while it is under way is looked up once. Safe on any thread.
class NameLookup {
 public:
  static constexpr std::size_t kMostThreads = 64;

  /// Gets each answer, on a look-up thread or inside start(); it must only hand the answer on, and not call
  /// back into this object. It is not called any more once the object is gone.
  using Sink = std::function<void(const std::string& host, LookupAnswer answer)>;

  NameLookup(Resolver resolver, Sink sink);
  ~NameLookup();
  NameLookup(const NameLookup&) = delete;
  NameLookup& operator=(const NameLookup&) = delete;

  /// Asks for the addresses of a host, answered once. A system that gives no thread is an answer without
  /// addresses.
  void start(const std::string& host);

  /// Nobody waits for this host any more: it is not looked up if its turn has not come yet.
  void forget(const std::string& host);

 private:
  struct State;
  // Shared with the look-up threads, which may outlive this object.
  std::shared_ptr<State> state_;
};

}  // namespace msp
