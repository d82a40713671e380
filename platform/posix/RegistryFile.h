#pragma once

#include <functional>

#include "PlatformRegistry.h"
#include "RegistryTree.h"

// The file that keeps the tree. Both operations return a platform error code.
namespace Platform {

// The tree as it stands; empty when there is no file yet.
LSTATUS readRegistry(RegistryTree& tree);

// Reads the tree, lets `change` edit it and writes it back, all under the file lock. `change` returns a
// platform error code; the file stays as it is unless that is ERROR_SUCCESS.
LSTATUS changeRegistry(const std::function<LSTATUS(RegistryTree&)>& change);

} // namespace Platform
