#include "DiffOutput.h"

namespace sitelist {
namespace {

std::string Shown(const std::string& text) { return text.empty() ? "(empty)" : text; }

std::string ShownFips(const Json& value) { return value.is_null() ? "(not set)" : Shown(value.get<std::string>()); }

std::string Quoted(const std::string& element, const std::string& name) { return element + " \"" + name + "\""; }

std::string Bytes(std::size_t size) { return std::to_string(size) + (size == 1 ? " byte" : " bytes"); }

void ListLines(std::string& out, const ListDiff& diff) {
  for (const ValueChange& c : diff.list) {
    const bool fips = c.key == "fipsMode";
    const std::string before = fips ? ShownFips(c.oldJson) : c.oldJson.is_null() ? "(none)" : Shown(c.oldText);
    const std::string after = fips ? ShownFips(c.newJson) : c.newJson.is_null() ? "(none)" : Shown(c.newText);
    out += "~ " + c.label + ": " + before + " -> " + after + "\n";
  }
  if (!diff.certificatesAdded.empty() || !diff.certificatesRemoved.empty()) {
    out += "~ CA certificates: " + std::to_string(diff.oldCertificates) + " -> " +
           std::to_string(diff.newCertificates) + "\n";
    for (const std::string& f : diff.certificatesRemoved) out += "    - SHA256 " + f + "\n";
    for (const std::string& f : diff.certificatesAdded) out += "    + SHA256 " + f + "\n";
  }
  for (const ValueChange& c : diff.policies) {
    if (c.oldJson.is_null())
      out += "+ policy " + c.label + ": " + Shown(c.newText) + "\n";
    else if (c.newJson.is_null())
      out += "- policy " + c.label + ": " + Shown(c.oldText) + "\n";
    else
      out += "~ policy " + c.label + ": " + Shown(c.oldText) + " -> " + Shown(c.newText) + "\n";
  }
}

std::string FieldValue(const SiteField& f) {
  if (f.password) return f.secret.empty() ? "(none)" : "set";
  return Shown(f.text);
}

void SiteLines(std::string& out, const ListDiff& diff) {
  for (const SiteRecord& s : diff.sitesRemoved) out += "- " + Quoted(s.element, s.name) + "\n";
  for (const SiteChange& s : diff.sitesChanged) {
    out += "~ " + Quoted(s.element, s.name) + "\n";
    for (const ValueChange& c : s.fields)
      out += "    " + c.label + ": " +
             (c.passwordChange.empty() ? Shown(c.oldText) + " -> " + Shown(c.newText) : c.passwordChange) + "\n";
  }
  for (const SiteRecord& s : diff.sitesAdded) {
    out += "+ " + Quoted(s.element, s.name) + "\n";
    for (const SiteField& f : s.fields) out += "    " + f.label + ": " + FieldValue(f) + "\n";
  }
}

void FileLines(std::string& out, const ListDiff& diff) {
  for (const FileChange& f : diff.files) {
    if (!f.oldSize)
      out += "+ file " + f.name + " (" + Bytes(*f.newSize) + ")\n";
    else if (!f.newSize)
      out += "- file " + f.name + " (" + Bytes(*f.oldSize) + ")\n";
    else
      out += "~ file " + f.name + " (" + Bytes(*f.oldSize) + " -> " + Bytes(*f.newSize) + ")\n";
  }
}

Json ChangeJson(const ValueChange& c, const char* keyName) {
  Json json{{keyName, c.key}};
  if (!c.passwordChange.empty()) {
    json["change"] = c.passwordChange;
  } else {
    json["old"] = c.oldJson;
    json["new"] = c.newJson;
  }
  return json;
}

Json SitesJson(const ListDiff& diff) {
  Json removed = Json::array(), added = Json::array(), changed = Json::array();
  for (const SiteRecord& s : diff.sitesRemoved) removed.push_back(RecordJson(s));
  for (const SiteRecord& s : diff.sitesAdded) added.push_back(RecordJson(s));
  for (const SiteChange& s : diff.sitesChanged) {
    Json fields = Json::array();
    for (const ValueChange& c : s.fields) fields.push_back(ChangeJson(c, "field"));
    changed.push_back({{"element", s.element}, {"name", s.name}, {"fields", fields}});
  }
  return {{"removed", removed}, {"added", added}, {"changed", changed}};
}

Json FilesJson(const ListDiff& diff) {
  Json files = Json::array();
  for (const FileChange& f : diff.files) {
    const char* change = !f.oldSize ? "added" : !f.newSize ? "removed" : "changed";
    files.push_back({{"name", f.name},
                     {"change", change},
                     {"oldSize", f.oldSize ? Json(*f.oldSize) : Json()},
                     {"newSize", f.newSize ? Json(*f.newSize) : Json()}});
  }
  return files;
}

}  // namespace

std::string DiffText(const ListDiff& diff, const std::string& oldLabel, const std::string& newLabel) {
  std::string out = "--- " + oldLabel + (diff.oldExists ? "" : " (no such file)") + "\n";
  out += "+++ " + newLabel + (diff.newExists ? "" : " (no such file)") + "\n";
  if (diff.Identical()) return out + "no differences\n";
  ListLines(out, diff);
  SiteLines(out, diff);
  FileLines(out, diff);
  return out;
}

Json DiffJson(const ListDiff& diff) {
  Json list = Json::array(), policies = Json::array();
  for (const ValueChange& c : diff.list) list.push_back(ChangeJson(c, "field"));
  for (const ValueChange& c : diff.policies) policies.push_back(ChangeJson(c, "name"));
  return {{"old", diff.oldPath},
          {"new", diff.newPath},
          {"oldExists", diff.oldExists},
          {"newExists", diff.newExists},
          {"identical", diff.Identical()},
          {"list", list},
          {"caCertificates",
           {{"old", diff.oldCertificates},
            {"new", diff.newCertificates},
            {"added", diff.certificatesAdded},
            {"removed", diff.certificatesRemoved}}},
          {"policySettings", policies},
          {"sites", SitesJson(diff)},
          {"files", FilesJson(diff)}};
}

}  // namespace sitelist
