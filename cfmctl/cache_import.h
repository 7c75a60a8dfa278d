// From the server's cache message to a model.
#ifndef CFMCTL_CACHE_IMPORT_H
#define CFMCTL_CACHE_IMPORT_H

#include "client_server.pb.h"
#include "model.h"

namespace cfmctl {

/// The lists may be in any order; parents that are named but absent appear with zero settings.
Model ImportCache(const client_server::OpCacheSync& cache);

}  // namespace cfmctl

#endif
