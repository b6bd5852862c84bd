// Symbol visibility for libvlmCmnLib.
//
// The library is built with -fvisibility=hidden; only what is marked
// VLM_EXPORT (the sitehlp:: API and the schema name constants) reaches the
// dynamic symbol table. VLM_HIDDEN keeps a member of an exported class out of
// it again.
#ifndef VLM_SITEHLP_EXPORT_H
#define VLM_SITEHLP_EXPORT_H

#if defined(__GNUC__)
#define VLM_EXPORT __attribute__((visibility("default")))
#define VLM_HIDDEN __attribute__((visibility("hidden")))
#else
#define VLM_EXPORT
#define VLM_HIDDEN
#endif

#endif  // VLM_SITEHLP_EXPORT_H
