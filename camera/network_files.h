// What the running system writes about its network into files: name servers and routes.
//
// The files are read anew by each call, a bounded line at a time. Thread-safe.
#pragma once

#include <netinet/in.h>

#include <cstddef>

// The name server on the given line of /etc/resolv.conf, 0 for the first. The text is left as it was when
// that line names none.
void ReadNameServer(size_t line, char* server, size_t size);

// The gateway of the first route in /proc/net/route that is up, has one, and belongs to an interface whose
// name begins with this one. Returns 0, or -1 when there is no such route.
int ReadGateway(const char* interface, in_addr* gateway);
