// Common set-up of the fuzz targets: a private data directory with the
// configuration pointed into it, a log sink that drops every line (at detail
// level, so that every message is still built), and small checks that stop
// the run (a crash libFuzzer reports) when a result breaks its contract.
#ifndef VLM_FUZZ_FUZZSUPPORT_H
#define VLM_FUZZ_FUZZSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "sitehlp/SitesHelper.h"

namespace fuzzsupport {

struct Environment {
  std::string root;       // the private directory
  std::string data;       // framework data directory
  std::string siteList;   // <data>/etc/SiteList.xml, the agent's list
  std::string input;      // <root>/input.xml, where a target puts its file
  std::string keyDir;     // <root>/keys-in, an empty key directory
};

// Set up once per process; removed at exit.
const Environment& Env();

// Replaces path with the given bytes (plain write: the fuzz input).
void WriteBytes(const std::string& path, const std::uint8_t* data, std::size_t size);

// Wide text of the bytes, one character per byte.
std::wstring Latin1(const std::uint8_t* data, std::size_t size);

// Wide text of the bytes taken as UTF-8 (invalid sequences replaced).
std::wstring Utf8(const std::uint8_t* data, std::size_t size);

// Stops the run with a message when a contract is broken.
void Require(bool condition, const char* what);
void RequireCode(int code, std::initializer_list<int> allowed, const char* operation);

// Every text field of every record ends within its capacity, the kinds are
// the five known ones, and the list ends. Returns the number of records.
std::size_t CheckList(const sitehlp::tag_Site* list);

}  // namespace fuzzsupport

#endif  // VLM_FUZZ_FUZZSUPPORT_H
