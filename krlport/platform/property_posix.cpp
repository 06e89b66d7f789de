#include "krlport/platform/property.h"

#include <cstring>
#include <fstream>
#include <string>

namespace krl_internal {

namespace {

constexpr const char kDefaultPropertyFile[] = "/etc/ostrevan/varnholt/korlan/6.0/properties";
const char* g_property_file = nullptr;  // null: the default

}  // namespace

void set_property_location(const char* location) { g_property_file = location; }

bool read_property(const char* name, char* out, std::size_t size) {
  std::ifstream file(g_property_file != nullptr ? g_property_file : kDefaultPropertyFile);
  if (!file) return false;
  const std::size_t n = std::strlen(name);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line.size() <= n || line.compare(0, n, name) != 0 || line[n] != '=') continue;
    std::string value = line.substr(n + 1);
    if (!value.empty() && value.back() == '\r') value.pop_back();  // file written on Windows
    const std::size_t len = value.size() < size - 1 ? value.size() : size - 1;
    std::memcpy(out, value.data(), len);
    out[len] = '\0';
    return true;
  }
  return false;
}

}  // namespace krl_internal
