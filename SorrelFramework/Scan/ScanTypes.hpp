#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ScanFileInfo.hpp"
#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"
#include "SorrelFramework/Platform/Items/ResourceValues.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

using FileRecords = std::vector<Ref<FileInformation>>;

/// What a record has if its item does not say.
constexpr std::string_view kDefaultRecordTitle = "";
constexpr std::int64_t kDefaultRecordSize = 0;

/// Path and bytes of an item that was found. Called on the main queue, once for each item.
using ProgressFunc = std::function<void(const std::string& path, std::int64_t size)>;
/// Fraction of the work that is done, 0 to 1.
using PercentFunc = std::function<void(float share)>;
/// True keeps the item. `position` is null outside a walk. Called on several threads at once.
using FilterFunc =
    std::function<bool(const URL& url, const ResourceValues& values, EnumerationPosition* position)>;
/// The records and the totals of each root.
using RootsDoneFunc = std::function<void(std::map<URL, FileRecords>, std::map<URL, ScanFilesInformation>)>;
using RootDoneFunc = std::function<void(ScanFilesInformation, FileRecords)>;

}  // namespace sorrel
