// mdls [-raw] [-name ATTRIBUTE]... PATH: the attributes of an item, one on a line.
//
// With -name only these, "(null)" for an unknown one; with -raw the values only, separated by NULs. Exits
// with 0, and with 1 for wrong use, an item that can't be reached, and output that was lost. For the values
// see Tools/ItemAttributes.hpp.

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tools/ItemAttributes.hpp"
#include "Tools/ToolHost.hpp"
#include "Tools/ToolOutput.hpp"

namespace {

using namespace sorrel::tools;
using Attributes = std::vector<ItemAttribute>;

struct Request {
  std::vector<std::string_view> names;  // all if empty
  bool raw = false;
  std::string path;
};

std::optional<Request> parse(const std::vector<std::string_view>& words) {
  Request request;
  std::size_t i = 0;
  for (; i < words.size() && words[i].starts_with('-'); ++i) {
    if (words[i] == "-raw") {
      request.raw = true;
    } else if (words[i] == "-name" && i + 1 < words.size()) {
      request.names.push_back(words[++i]);
    } else {
      return std::nullopt;
    }
  }
  if (i + 1 != words.size() || words[i].empty()) return std::nullopt;
  request.path = words[i];
  return request;
}

Attributes chosen(const Attributes& all, const std::vector<std::string_view>& names) {
  if (names.empty()) return all;
  Attributes some;
  for (const std::string_view name : names) {
    const auto found = std::ranges::find(all, name, &ItemAttribute::name);
    some.push_back(found != all.end() ? *found : ItemAttribute{name, "(null)"});
  }
  return some;
}

void print(const Attributes& attributes, ToolOutput& output) {
  std::size_t width = 0;
  for (const ItemAttribute& attribute : attributes) width = std::max(width, attribute.name.size());
  for (const ItemAttribute& attribute : attributes) {
    output.addText(std::string(attribute.name) + std::string(width - attribute.name.size(), ' ') + " = " +
                   attribute.value + "\n");
  }
}

void printRaw(const Attributes& attributes, ToolOutput& output) {
  bool isFirst = true;
  for (const ItemAttribute& attribute : attributes) {
    if (!isFirst) output.addText(std::string_view("\0", 1));
    isFirst = false;
    const std::string_view value = attribute.value;
    const bool isText = value.starts_with('"');
    output.addText(isText ? value.substr(1, value.size() - 2) : value);
  }
}

}  // namespace

int main(int count, char** words) {
  ToolOutput output;
  installToolHost();
  const std::optional<Request> request = parse({words + 1, words + count});
  if (!request) {
    std::fputs("Usage: mdls [-raw] [-name ATTRIBUTE]... PATH\n", stderr);
    return 1;
  }
  const std::optional<Attributes> all = itemAttributes(request->path);
  if (!all) {
    // Without the path, which could be mistaken for an attribute, or contain terminal commands.
    std::fputs("mdls: could not find the item.\n", stderr);
    return 1;
  }
  const Attributes attributes = chosen(*all, request->names);
  if (request->raw) {
    printRaw(attributes, output);
  } else {
    print(attributes, output);
  }
  return output.finish() ? 0 : 1;
}
