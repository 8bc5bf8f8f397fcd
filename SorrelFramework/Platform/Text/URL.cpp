#include "SorrelFramework/Platform/Text/URL.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kFileScheme = "file://";

enum : std::uint8_t { kURLCharacter = 1, kPathCharacter = 2 };

constexpr std::array<std::uint8_t, 256> makeCharacterClasses() {
  std::array<std::uint8_t, 256> classes{};
  const auto add = [&classes](std::string_view characters, unsigned mask) {
    for (const char c : characters) {
      auto& entry = classes[static_cast<unsigned char>(c)];
      entry = static_cast<std::uint8_t>(entry | mask);
    }
  };
  constexpr std::string_view alphanumeric = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  add(alphanumeric, kURLCharacter | kPathCharacter);
  add("!$&'()*+,-./:=@_~", kURLCharacter | kPathCharacter);
  add(";?[]", kURLCharacter);
  return classes;
}

constexpr auto kClasses = makeCharacterClasses();

constexpr bool isURLCharacter(char c) {
  return (kClasses[static_cast<unsigned char>(c)] & kURLCharacter) != 0;
}
constexpr bool isPathCharacter(char c) {
  return (kClasses[static_cast<unsigned char>(c)] & kPathCharacter) != 0;
}

constexpr int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

/// The byte encoded at text[at] == '%', or -1.
int codedByte(std::string_view text, std::size_t at) {
  if (at + 2 >= text.size()) return -1;
  const int high = hexDigit(text[at + 1]);
  const int low = hexDigit(text[at + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

bool isDirectoryOnDisk(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string currentFolder() {
  const std::unique_ptr<char, decltype(&std::free)> folder(::getcwd(nullptr, 0), &std::free);
  return folder ? std::string(folder.get()) : std::string("/");
}

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

/// The path of a URL's text, still encoded: the part between scheme and authority and "?" or "#".
std::string_view codedPath(std::string_view text) {
  text = text.substr(0, text.find_first_of("?#"));
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || text.find('/') < colon) return text;
  text.remove_prefix(colon + 1);
  if (!text.starts_with('/')) return {};  // "mailto:a@b" and the like have no path
  if (!text.starts_with("//")) return text;
  const auto slash = text.find('/', 2);
  return slash == std::string_view::npos ? std::string_view() : text.substr(slash);
}

/// Offset of the last dot of an encoded path, which may be encoded itself; the end if there is none.
std::size_t lastDot(std::string_view coded) {
  for (std::size_t at = coded.size(); at-- > 0;) {
    if (coded[at] == '.' || (coded[at] == '%' && codedByte(coded, at) == '.')) return at;
  }
  return coded.size();
}

}  // namespace

URL::URL() {
  std::string folder = currentFolder();
  if (folder.back() != '/') folder += '/';
  text_ = SharedText(std::string(kEmptyPath).append(kFileScheme), percentEncodedPath(folder));
}

std::optional<URL> URL::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  bool fragment = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (codedByte(text, i) < 0) return std::nullopt;
    } else if (text[i] == '#') {
      if (std::exchange(fragment, true)) return std::nullopt;
    } else if (!isURLCharacter(text[i])) {
      return std::nullopt;
    }
  }
  return URL(Absolute{}, SharedText(text));
}

URL URL::fileURL(std::string_view path) {
  if (path.empty()) return {};
  if (path.back() == '/') return fileURL(path, true);
  return fileURL(path, isDirectoryOnDisk(std::string(path)));
}

URL URL::fileURL(std::string_view path, bool isDirectory) {
  if (path.empty()) return {};
  std::string absolute;
  if (path.front() != '/') absolute = currentFolder();
  if (!absolute.empty() && absolute.back() != '/') absolute += '/';
  absolute += withoutTrailingSlashes(path);
  std::string coded = percentEncodedPath(absolute);
  if (isDirectory && coded.back() != '/') coded += '/';
  return URL(Absolute{}, SharedText(kFileScheme, coded));
}

URL URL::fromEncodedPieces(std::string_view head, std::string_view tail) {
  return URL(Absolute{}, SharedText(head, tail));
}

std::string URL::absoluteString() const { return std::string(absoluteText()); }

bool URL::isFileURL() const { return isEmptyPath() || text_.view().starts_with("file:"); }

std::string URL::path() const {
  std::string path = percentDecodedBytes(codedPath(absoluteText()));
  path.resize(withoutTrailingSlashes(path).size());  // a slash may have been encoded
  return path;
}

std::string URL::lastPathComponent() const {
  const std::string_view coded = codedPath(absoluteText());
  return percentDecodedBytes(sorrel::lastPathComponent(coded));
}

std::string URL::pathExtension() const { return std::string(sorrel::pathExtension(lastPathComponent())); }

URL URL::deletingPathExtension() const {
  if (pathExtension().empty()) return *this;
  std::string text = absoluteString();
  const std::size_t pathEnd = std::min(text.find_first_of("?#"), text.size());
  const std::size_t slashes = withoutTrailingSlashes(std::string_view(text).substr(0, pathEnd)).size();
  const std::size_t dot = lastDot(std::string_view(text).substr(0, slashes));
  text.erase(dot, slashes - dot);
  return URL(Absolute{}, SharedText(text));
}

URL URL::appendingPathComponent(std::string_view component) const {
  URL plain = appendingPathComponent(component, component.ends_with('/'));
  if (!isFileURL() || plain.relativeText().ends_with('/') || !isDirectoryOnDisk(plain.path())) return plain;
  return URL(Absolute{}, SharedText(plain.relativeText(), "/"));
}

URL URL::appendingPathComponent(std::string_view component, bool isDirectory) const {
  while (component.starts_with('/')) component.remove_prefix(1);
  while (component.ends_with('/')) component.remove_suffix(1);
  std::string text = absoluteString();
  std::string rest;
  if (const auto query = text.find_first_of("?#"); query != std::string::npos) {
    rest = text.substr(query);
    text.erase(query);
  }
  if (!text.ends_with('/')) text += '/';
  appendPercentEncodedPath(text, component);
  if (isDirectory && !text.ends_with('/')) text += '/';
  return URL(Absolute{}, SharedText(text, rest));
}

std::vector<std::string> URL::pathComponents() const {
  std::vector<std::string> components;
  const std::string whole = path();
  std::string_view rest = whole;
  if (rest.starts_with('/')) components.emplace_back("/");
  while (!rest.empty()) {
    const auto slash = rest.find('/');
    const std::string_view piece = rest.substr(0, slash);
    if (!piece.empty()) components.emplace_back(piece);
    if (slash == std::string_view::npos) break;
    rest.remove_prefix(slash + 1);
  }
  return components;
}

std::string URL::description() const { return std::string(text_.view()); }

std::string_view URL::absoluteText() const noexcept {
  return isEmptyPath() ? text_.view().substr(kEmptyPath.size()) : text_.view();
}

std::string describe(const std::vector<URL>& urls) {
  std::string text = "[";
  for (const URL& url : urls) {
    if (text.size() > 1) text += ", ";
    text += url.description();
  }
  return text += ']';
}

std::string percentEncodedPath(std::string_view path) {
  std::string coded;
  appendPercentEncodedPath(coded, path);
  return coded;
}

void appendPercentEncodedPath(std::string& out, std::string_view path) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  for (const char c : path) {
    if (isPathCharacter(c)) {
      out += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out += '%';
      out += digits[byte >> 4U];
      out += digits[byte & 15U];
    }
  }
}

std::string percentDecodedBytes(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int byte = text[i] == '%' ? codedByte(text, i) : -1;
    bytes += byte < 0 ? text[i] : static_cast<char>(byte);
    if (byte >= 0) i += 2;
  }
  return bytes;
}

std::optional<std::string> removingPercentEncoding(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && codedByte(text, i) < 0) return std::nullopt;
  }
  std::string decoded = percentDecodedBytes(text);
  if (!isValidUTF8(decoded)) return std::nullopt;
  return decoded;
}

namespace {

/// Characters that change the direction of text; an extension that contains one is not an extension (U+061C,
/// U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069, as UTF-8).
bool holdsDirectionControl(std::string_view text) {
  constexpr std::array<std::string_view, 12> controls = {
      "\xD8\x9C",     "\xE2\x80\x8E", "\xE2\x80\x8F", "\xE2\x80\xAA", "\xE2\x80\xAB", "\xE2\x80\xAC",
      "\xE2\x80\xAD", "\xE2\x80\xAE", "\xE2\x81\xA6", "\xE2\x81\xA7", "\xE2\x81\xA8", "\xE2\x81\xA9"};
  for (const std::string_view control : controls) {
    if (text.find(control) != std::string_view::npos) return true;
  }
  return false;
}

}  // namespace

std::string_view pathExtension(std::string_view lastComponent) {
  const std::string_view name = sorrel::lastPathComponent(lastComponent);
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
  const std::string_view before = name.substr(0, dot);
  const std::string_view extension = name.substr(dot + 1);
  if (before == "." || before == "..") return {};
  if (extension.find_first_of(" /") != std::string_view::npos || holdsDirectionControl(extension)) return {};
  return extension;
}

std::string deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

std::string_view lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos || path == "/") return path;
  return path.substr(slash + 1);
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return std::string(component);
  std::string joined;
  joined.reserve(path.size() + component.size() + 1);
  const auto append = [&joined](std::string_view piece) {
    for (const char c : piece) {
      if (c != '/' || joined.empty() || joined.back() != '/') joined += c;
    }
  };
  append(path);
  append("/");
  append(component);
  joined.resize(withoutTrailingSlashes(joined).size());
  return joined;
}

}  // namespace sorrel
