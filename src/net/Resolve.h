#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "net/Result.h"
#include "net/StorageAddress.h"

namespace NFramework {

/// The addresses of a host, each with `port`, in the order in which the system prefers them; at
/// least one. `host` is a name or a numeric address without a port ("fe80::1%eth0" too). `family`
/// restricts what is looked for; kNone takes both.
///
/// **This can block as long as the system's resolver likes** (with name servers that don't answer,
/// usually some ten seconds): the system's getaddrinfo takes no deadline and can't be interrupted.
/// Call it where that is no harm, never on a control thread; numeric texts don't ask anyone. Any
/// thread. Errors: ENOENT no such name or no address of the family, EAGAIN the resolver can't tell
/// now, what the system says else.
Result<std::vector<StorageAddress>> resolve(const std::string& host, std::uint16_t port,
                                            Family family = Family::kNone);

}  // namespace NFramework
