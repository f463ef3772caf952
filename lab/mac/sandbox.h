#pragma once

#include <filesystem>
#include <string>

namespace msp::lab {

/// The exit status of mac-sandbox when the system does not allow a sandbox.
inline constexpr int kSandboxNotAllowed = 77;
/// And when it is for another reason that the program was not started; the line on standard error says why.
inline constexpr int kSandboxFailed = 125;

/// Moves the calling process into a file system of its own in which /Users, /Library, /System and
/// /opt/msp-agent are those of the lab folder (its Users, Library, System and agent), and /opt holds
/// nothing else. Everything else of / is there as outside, at the same paths. /etc/hosts and
/// /etc/ssl/certs/ca-certificates.crt are replaced by the lab's etc/hosts and etc/ca-certificates.crt
/// when it has those files. The working directory becomes /.
///
/// The outside sees none of it: the mounts belong to the process and those it starts, and end with them.
/// Without root rights a user namespace is entered as well, in which the user appears as root.
///
/// For a process with a single thread. False when the system does not allow it, with one line in whyNot;
/// std::system_error when something else is wrong, such as a lab folder with parts missing. In both cases
/// the process may have been moved halfway: it should say why and exit.
[[nodiscard]] bool enterSandbox(const std::filesystem::path& lab, std::string& whyNot);

/// Cuts the calling process, and all that it starts from now on, off from every network but a loopback
/// interface of its own. There 127.0.0.1:443 can be listened on, and nothing leaves the machine. Sandboxes
/// can be entered afterwards.
///
/// To be called by a process with a single thread, at its start. Without root rights a user namespace is
/// entered as well, in which the user appears as root. False when the system does not allow it, with one
/// line in whyNot; the process is then still on the network that it was on, or has none.
[[nodiscard]] bool enterPrivateNetwork(std::string& whyNot);

}  // namespace msp::lab
