#pragma once

struct sockaddr;

/// Whether this machine is connected to anything. Safe on any thread.
namespace msp {

/// Whether at least one interface has an address by isUsableAddress. True as well when the system does not
/// say: then nobody waits for a network.
bool hasUsableNetwork();

/// Whether an address, on an interface with these flags (see getifaddrs(3)), leads out of the machine: the
/// interface is up and running and not the loopback, the address IPv4 or IPv6. Link-local addresses do not
/// count: a Mac's interfaces have them without any network.
bool isUsableAddress(unsigned int interfaceFlags, const sockaddr& address);

}  // namespace msp
