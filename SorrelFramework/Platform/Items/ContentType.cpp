#include "SorrelFramework/Platform/Items/ContentType.hpp"

#include <fnmatch.h>
#include <gio/gio.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "SorrelFramework/Platform/Items/ContentTypeTables.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kFolder = "public.folder";
constexpr std::string_view kFramework = "com.apple.framework";
constexpr std::size_t kRememberedExtensions = 4096;

/// The meaning of an extension: a type, and types an item conforms to in addition to that type's parents.
struct Meaning {
  std::string_view type;
  std::string_view also;
};
using Meanings = std::unordered_map<std::string_view, Meaning>;

struct GFree {
  void operator()(char* text) const { g_free(text); }
};
using GText = std::unique_ptr<char, GFree>;

template <class Visit>
void forEachWord(std::string_view words, Visit visit) {
  while (!words.empty()) {
    const std::size_t end = std::min(words.find(' '), words.size());
    visit(words.substr(0, end));
    words.remove_prefix(std::min(end + 1, words.size()));
  }
}

Meanings indexOf(std::span<const ExtensionRow> rows) {
  Meanings index;
  for (const ExtensionRow& row : rows) {
    forEachWord(row.extensions, [&](std::string_view word) {
      index.emplace(word, Meaning{row.type, row.also});
    });
  }
  return index;
}

const Meanings& fileMeanings() {
  static const Meanings index = indexOf(fileExtensionRows());
  return index;
}

const Meanings& folderMeanings() {
  static const Meanings index = indexOf(folderExtensionRows());
  return index;
}

std::string_view parentsOf(std::string_view type) {
  static const auto index = [] {
    std::unordered_map<std::string_view, std::string_view> parents;
    for (const TypeRow& row : typeRows()) parents.emplace(row.type, row.parents);
    return parents;
  }();
  const auto found = index.find(type);
  return found == index.end() ? std::string_view() : found->second;
}

/// Extensions are compared case-insensitively in ASCII only: all known ones are ASCII.
std::string lowerExtension(std::string_view path) {
  std::string extension(pathExtension(lastPathComponent(path)));
  for (char& c : extension) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return extension;
}

/// If the MIME folders are determined only after the first guess, GLib reads the database twice and leaks the
/// first copy.
void settleMimeFolders() {
  static std::once_flag once;
  std::call_once(once, [] { static_cast<void>(g_content_type_get_mime_dirs()); });
}

std::string guessedMimeType(std::string_view name) {
  settleMimeFolders();
  const GText type(g_content_type_guess(std::string(name).c_str(), nullptr, 0, nullptr));
  if (!type) return "application/octet-stream";
  const GText mime(g_content_type_get_mime_type(type.get()));
  return mime ? mime.get() : "application/octet-stream";
}

bool matches(const MimeRow& row, const std::string& mime) {
  if (row.mime.front() == '=') {
    return g_content_type_is_a(mime.c_str(), std::string(row.mime.substr(1)).c_str()) != 0;
  }
  return ::fnmatch(std::string(row.mime).c_str(), mime.c_str(), 0) == 0;
}

Meaning meaningOfMimeType(const std::string& mime) {
  for (const MimeRow& row : mimeRows()) {
    if (matches(row, mime)) return {row.type, row.also};
  }
  return {"public.data", {}};
}

/// The MIME database matches dozens of patterns against each name, and a few extensions occur again and
/// again.
Meaning meaningByMimeType(const std::string& extension) {
  static std::shared_mutex mutex;
  static std::unordered_map<std::string, Meaning> known;
  {
    const std::shared_lock lock(mutex);
    const auto found = known.find(extension);
    if (found != known.end()) return found->second;
  }
  const Meaning meaning = meaningOfMimeType(guessedMimeType("file." + extension));
  const std::unique_lock lock(mutex);
  if (known.size() >= kRememberedExtensions) known.clear();
  known.emplace(extension, meaning);
  return meaning;
}

Meaning meaningOf(std::string_view path, bool isDirectory) {
  const std::string extension = lowerExtension(path);
  const Meanings& index = isDirectory ? folderMeanings() : fileMeanings();
  const auto found = index.find(extension);
  if (found != index.end()) return found->second;
  if (isDirectory) return {kFolder, {}};
  if (extension.empty()) return {"public.data", {}};
  return meaningByMimeType(extension);
}

/// The same based on lstat; an empty type if it fails.
Meaning meaningOnDisk(std::string_view path) {
  struct stat info {};
  if (::lstat(std::string(path).c_str(), &info) != 0) return {};
  if (S_ISLNK(info.st_mode)) return {"public.symlink", {}};
  const bool executable = S_ISREG(info.st_mode) && (info.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
  if (executable && lowerExtension(path).empty()) return {"public.unix-executable", {}};
  return meaningOf(path, S_ISDIR(info.st_mode));
}

void addWithParents(std::string_view type, std::vector<std::string>& tree) {
  if (std::ranges::find(tree, type) != tree.end()) return;
  tree.emplace_back(type);
  forEachWord(parentsOf(type), [&tree](std::string_view parent) { addWithParents(parent, tree); });
}

std::vector<std::string> treeOf(const Meaning& meaning) {
  std::vector<std::string> tree;
  if (!meaning.type.empty()) addWithParents(meaning.type, tree);
  forEachWord(meaning.also, [&tree](std::string_view type) { addWithParents(type, tree); });
  return tree;
}

}  // namespace

std::string contentType(std::string_view path, bool isDirectory) {
  return std::string(meaningOf(path, isDirectory).type);
}

std::string contentType(std::string_view path) { return std::string(meaningOnDisk(path).type); }

std::vector<std::string> contentTypeTree(std::string_view path, bool isDirectory) {
  return treeOf(meaningOf(path, isDirectory));
}

std::vector<std::string> contentTypeTree(std::string_view path) { return treeOf(meaningOnDisk(path)); }

bool isPackageName(std::string_view name) {
  if (name.find('.') == std::string_view::npos) return false;
  const auto found = folderMeanings().find(lowerExtension(name));
  return found != folderMeanings().end() && found->second.type != kFramework;
}

std::string mimeType(std::string_view path, bool isDirectory) {
  return isDirectory ? "inode/directory" : guessedMimeType(lastPathComponent(path));
}

std::string localizedTypeDescription(std::string_view path, bool isDirectory) {
  settleMimeFolders();  // folders are not guessed by name
  const std::string mime = mimeType(path, isDirectory);
  const GText type(g_content_type_from_mime_type(mime.c_str()));
  const GText text(g_content_type_get_description(type ? type.get() : mime.c_str()));
  return text ? text.get() : mime;
}

}  // namespace sorrel
