// The in-memory cache of loaded keys, kept by KeyConf per (key directory,
// kind) so that creating an encryption object does not read the key file
// every time.
// Thread safety: may be called from any thread.
#ifndef VLM_PORT_CRYPTO_KEYCACHE_H
#define VLM_PORT_CRYPTO_KEYCACHE_H

namespace port {

// Forgets (and wipes) every cached key; the next use reads the key files
// again. For tests and for callers that replace key files.
void ClearKeyCache();

}  // namespace port

#endif  // VLM_PORT_CRYPTO_KEYCACHE_H
