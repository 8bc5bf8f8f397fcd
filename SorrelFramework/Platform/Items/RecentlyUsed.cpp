#include "SorrelFramework/Platform/Items/RecentlyUsed.hpp"

#include <glib.h>

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <utility>

#include "SorrelFramework/Platform/Files/FileBytes.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kMostBytes = std::size_t{16} << 20;

using BookmarkFile = std::unique_ptr<GBookmarkFile, decltype(&g_bookmark_file_free)>;
using TextList = std::unique_ptr<char*, decltype(&g_strfreev)>;
struct GFree {
  void operator()(char* text) const { g_free(text); }
};
using GText = std::unique_ptr<char, GFree>;

/// The newest time of each path.
class Moments {
 public:
  void add(const std::string& path, GDateTime* moment) {
    if (moment == nullptr) return;
    const Date date{static_cast<double>(g_date_time_to_unix(moment))};
    if (date >= began_) return;
    const auto [entry, isNew] = newest_.emplace(path, date);
    if (!isNew && entry->second < date) entry->second = date;
  }
  std::map<std::string, Date> take() { return std::move(newest_); }

 private:
  /// GLib replaces a missing time by the current one.
  Date began_{std::floor(Date::now().secondsSince1970)};
  std::map<std::string, Date> newest_;
};

std::string withoutLinks(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  return real ? real.get() : "";
}

/// The file of the program that a command line starts; "" if there is none.
std::string programOf(const char* commandLine) {
  char** words = nullptr;
  int count = 0;
  if (commandLine == nullptr || g_shell_parse_argv(commandLine, &count, &words, nullptr) == FALSE) return "";
  const TextList list(words, &g_strfreev);
  const GText program(g_find_program_in_path(words[0]));
  return program ? withoutLinks(program.get()) : "";
}

void addPrograms(GBookmarkFile* list, const char* uri, Moments& programs) {
  const TextList names(g_bookmark_file_get_applications(list, uri, nullptr, nullptr), &g_strfreev);
  for (char** name = names.get(); name != nullptr && *name != nullptr; ++name) {
    char* commandLine = nullptr;
    GDateTime* moment = nullptr;
    if (g_bookmark_file_get_application_info(list, uri, *name, &commandLine, nullptr, &moment, nullptr) ==
        FALSE) {
      continue;
    }
    const GText text(commandLine);
    const std::string program = programOf(text.get());
    if (!program.empty()) programs.add(program, moment);
  }
}

std::optional<Date> momentOf(const std::map<std::string, Date>& moments, const std::string& path) {
  const auto found = moments.find(path);
  return found == moments.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

std::optional<RecentlyUsed> RecentlyUsed::read(const std::string& listFile) {
  const auto bytes = readFileBytes(listFile, kMostBytes);
  if (!bytes) return std::nullopt;
  Moments files;
  Moments programs;
  const BookmarkFile list(g_bookmark_file_new(), &g_bookmark_file_free);
  if (g_bookmark_file_load_from_data(list.get(), bytes->data(), bytes->size(), nullptr) == FALSE)
    return std::nullopt;

  const TextList uris(g_bookmark_file_get_uris(list.get(), nullptr), &g_strfreev);
  for (char** uri = uris.get(); *uri != nullptr; ++uri) {
    const GText path(g_filename_from_uri(*uri, nullptr, nullptr));
    if (path) files.add(path.get(), g_bookmark_file_get_visited_date_time(list.get(), *uri, nullptr));
    addPrograms(list.get(), *uri, programs);
  }
  RecentlyUsed found;
  found.files_ = files.take();
  found.programs_ = programs.take();
  return found;
}

std::optional<Date> RecentlyUsed::opened(const std::string& path) const { return momentOf(files_, path); }

std::optional<Date> RecentlyUsed::ran(const std::string& path) const { return momentOf(programs_, path); }

}  // namespace sorrel
