// The floors: what a perfect implementation could not avoid, measured on the
// same files and records as the library's operations.
#ifndef VLM_BENCH_FLOORS_H
#define VLM_BENCH_FLOORS_H

#include <string>
#include <vector>

#include "sitehlp/SitesHelper.h"

namespace vlmbench {

class FloorCipher;

// pugixml loads the file, every site element's attributes and children are
// walked, and one whole tag_Site is calloc'ed per site (then all are freed).
// With a cipher (the crypto-inclusive floor) the ciphertext of every password
// element is also opened into a wide buffer. Returns the number of sites.
std::size_t FloorRead(const std::string& path, FloorCipher* cipher = nullptr);

// pugixml loads the file (nothing else).
bool FloorLoad(const std::string& path);

// The whole file into memory (open, read, close).
std::size_t FloorReadBytes(const std::string& path);
// The whole file into memory and widened from UTF-8 into a std::wstring.
std::size_t FloorReadWiden(const std::string& path);

// One calloc and memcpy of a whole tag_Site per record (then all freed).
std::size_t FloorCopy(const sitehlp::tag_Site* head);

// Builds in pugixml the document CreateSiteList writes for these records
// (same elements, attributes, order and values; passwords[i] holds the
// ciphertexts of record i in document order, made beforehand) and saves it
// crash-safely, as the library's writer does: temporary file, fsync, rename,
// directory fsync. With a cipher (the crypto-inclusive floor) every password
// is sealed while the document is built, with a fresh nonce, instead.
// Returns the bytes written.
std::size_t FloorWrite(const sitehlp::tag_Site* head, const std::vector<std::vector<std::string>>& passwords,
                       const std::vector<std::wstring>& caCertificates,
                       const std::vector<std::pair<std::wstring, std::wstring>>& policies, const std::string& path,
                       FloorCipher* cipher = nullptr);

// pugixml loads src and saves it crash-safely to dst.
std::size_t FloorLoadSave(const std::string& src, const std::string& dst);

// pugixml parses UTF-8 text held in memory, every site element is walked and
// one tag_Site calloc'ed per site, as FloorRead does for a file.
std::size_t FloorParseWalk(const std::string& text, FloorCipher* cipher = nullptr);

// The passwords of a record in the order the writer emits them.
std::vector<std::wstring> PasswordsOf(const sitehlp::tag_Site& site);

}  // namespace vlmbench

#endif  // VLM_BENCH_FLOORS_H
