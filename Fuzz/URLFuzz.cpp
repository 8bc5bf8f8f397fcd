// Any text as a URL and any bytes as a path: conversions are reversible, and the rules of paths hold.
#include "Fuzz/Require.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

using namespace sorrel;
using sorrel::fuzz::require;

namespace {

std::string withoutSlashesAtEnd(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return std::string(path);
}

void checkPercentCoding(std::string_view bytes) {
  const std::string coded = percentEncodedPath(bytes);
  require(percentDecodedBytes(coded) == bytes, "percent coding loses no byte");
  std::string appended = "head";
  appendPercentEncodedPath(appended, bytes);
  require(appended == "head" + coded, "appending codes alike");
  const std::optional<std::string> text = removingPercentEncoding(coded);
  require(text.has_value() == isValidUTF8(bytes), "the strict form gives texts only");
  require(!text.has_value() || *text == bytes, "the strict form decodes alike");
  const std::optional<std::string> strict = removingPercentEncoding(bytes);
  require(!strict.has_value() || *strict == percentDecodedBytes(bytes), "both decoders agree");
}

void checkURL(const URL& url) {
  require(url == url && !(url < url), "a URL equals itself");
  const std::string path = url.path();
  require(path.size() <= 1 || !path.ends_with('/'), "a path has no slash at its end");
  const std::string last = url.lastPathComponent();
  require(url.pathExtension().size() <= last.size(), "an extension is a part of the name");
  (void)url.pathComponents();
  (void)url.description();
  (void)url.deletingPathExtension().absoluteString();
  (void)url.appendingPathComponent("x", false).absoluteString();
}

void checkParsed(std::string_view text) {
  const std::optional<URL> url = URL::parse(text);
  if (!url.has_value()) return;
  require(url->relativeText() == text, "a URL keeps its text");
  require(URL::parse(url->absoluteString()).has_value(), "the absolute text is a URL");
  checkURL(*url);
}

void checkFileURL(std::string_view bytes) {
  const std::string path = "/" + std::string(bytes);
  for (const bool isDirectory : {false, true}) {
    const URL url = URL::fileURL(path, isDirectory);
    require(url.isFileURL(), "a path makes a file URL");
    require(url.path() == withoutSlashesAtEnd(path), "a file URL keeps every byte of its path");
    const std::optional<URL> again = URL::parse(url.absoluteString());
    require(again.has_value() && *again == url, "a file URL comes back from its text");
    checkURL(url);
  }
}

void checkPaths(std::string_view path, std::string_view component) {
  const std::string joined = appendingPathComponent(path, component);
  require(joined.find("//") == std::string::npos, "no runs of slashes in a joined path");
  require(joined.size() <= 1 || !joined.ends_with('/'), "no slash at the end of a joined path");
  const std::string_view last = lastPathComponent(path);
  require(last == "/" || last.find('/') == last.npos, "a component holds no slash");
  require(pathExtension(last).size() < last.size() || last.empty(), "an extension is a part of the name");
  require(deletingLastPathComponent(path).size() <= path.size(), "a parent is no longer than its child");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  checkPercentCoding(text);
  checkParsed(text);
  checkParsed("file:///" + std::string(text));
  if (text.find('\0') == text.npos) checkFileURL(text);
  checkPaths(text.substr(0, size / 2), text.substr(size / 2));
  return 0;
}
