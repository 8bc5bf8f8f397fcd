// The public names of the scanners. PublicNames.hpp defines the checks.
#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"
#include "SorrelFramework/Scan/MasterScan/EmailScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/TrashBinScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/iTunesScanService.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Tree/DuplicateFileTree.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"
#include "Tests/Contract/PublicNames.hpp"

namespace sorrel {
namespace {

// SuperScanService
using Serial = std::shared_ptr<WeftSerialQueue>;
static_assert(!std::is_default_constructible_v<SuperScanService>);
static_assert(std::is_same_v<SuperScanService::ScanState, ScanState>);
static_assert(std::is_same_v<decltype(SuperScanService::scanStatus), ScanStatusTable&>);
static_assert(std::is_same_v<decltype(SuperScanService::percentService), PercentServiceSlot>);
static_assert(isOperation<const Image&()>(&SuperScanService::defaultImage));
static_assert(SuperScanService::defaultTitle.empty());
static_assert(SuperScanService::defaultSize == 0 && SuperScanService::defaultSearchKeySize == 0);
static_assert(isOperation<URL()>(&SuperScanService::defaultURL));
static_assert(isOperation<URL()>(&SuperScanService::supportFolder));
static_assert(isOperation<void(FeatureInformation&)>(&SuperScanService::stopScan));
static_assert(isOperation<std::string(const URL&)>(&SuperScanService::handleURLToString));
static_assert(isOperation<std::string(std::string_view)>(&SuperScanService::handleStringToString));
using CategoryList = std::vector<Ref<CategoryInformation>>;
static_assert(
    isOperation<CategoryList(const CategoryList&)>(&SuperScanService::largeAndOldFileFilterAllFile));
static_assert(isOperation<std::int64_t(const URL&, Integer)>(&SuperScanService::calculateSize));
static_assert(isOperation<std::int64_t(const URL&, Integer, Integer)>(&SuperScanService::appCalculateSize));
static_assert(isOperation<std::int64_t(const URL&)>(&SuperScanService::getPackageSizeFromTerminal));
static_assert(isOperation<Ref<FileInformation>(const URL&, ResourceKeys, CategoryInformation&,
                                               std::optional<std::int64_t>)>(
    &SuperScanService::getFileInformationFromUrl));
static_assert(isOperation<Ref<FileInformation>(const URL&, ResourceKeys, std::optional<std::int64_t>)>(
    &SuperScanService::getFileInformationFromUrl));
static_assert(requires(const URL& url, ResourceKeys propertiesForKey, CategoryInformation& categoryInfo) {
  SuperScanService::getFileInformationFromUrl(url, propertiesForKey, categoryInfo);
  SuperScanService::getFileInformationFromUrl(url, propertiesForKey);
});
static_assert(isOperation<std::vector<std::string>(std::string_view, std::string_view)>(
    &SuperScanService::regexGetSub));
static_assert(
    isOperation<void(FeatureInformation&, const std::vector<URL>&, Integer, ResourceKeys, EnumerationOptions,
                     Integer, ProgressFunc, PercentFunc, FilterFunc, RootsDoneFunc, Serial,
                     CategoryInformation&, bool)>(&SuperScanService::getListFromUrls));
static_assert(
    isOperation<void(FeatureInformation&, const URL&, Integer, ResourceKeys, EnumerationOptions, Integer,
                     EnumerationErrorHandler, FilterFunc, ProgressFunc, const RootDoneFunc&,
                     CategoryInformation&, bool)>(&SuperScanService::getListFromUrl));
static_assert(std::is_same_v<ProgressFunc, std::function<void(const std::string&, std::int64_t)>>);
static_assert(std::is_same_v<PercentFunc, std::function<void(float)>>);
static_assert(std::is_same_v<SingleDoneFunc, std::function<void(Integer, std::int64_t)>>);

// SystemScanService
using CategoryResultsFunc = std::function<void(CategoryResults)>;
using SystemScan = void(FeatureInformation&, ProgressFunc, PercentFunc, SingleDoneFunc, CategoryResultsFunc,
                        Serial);
static_assert(std::derived_from<SystemScanService, SuperScanService>);
static_assert(isOperation<SystemScan>(&SystemScanService::scanSystemJunk));
static_assert(isOperation<SystemScan>(&SystemScanService::scanProSystemJunk));
static_assert(isOperation<CategoryList(CategoryList)>(&SystemScanService::updateSystemJunkCategory));

// TrashBinScanService
using TrashBinScan = void(FeatureInformation&, ProgressFunc, PercentFunc, SingleDoneFunc,
                          std::function<void(FeatureInformation&, std::int64_t)>, const std::string&, Serial);
static_assert(std::derived_from<TrashBinScanService, SuperScanService>);
static_assert(isOperation<TrashBinScan>(&TrashBinScanService::scanTrashBin));
static_assert(isOperation<TrashBinScan>(&TrashBinScanService::scanProTrashBin));
static_assert(isOperation<std::vector<std::pair<URL, std::string>>()>(&TrashBinScanService::getUSBInfo));

// EmailScanService
static_assert(std::derived_from<EmailScanService, SuperScanService>);
static_assert(isOperation<SystemScan>(&EmailScanService::scanEmailJunk));
static_assert(isOperation<SystemScan>(&EmailScanService::scanProEmailJunk));
static_assert(
    isOperation<std::vector<std::string>(const URL&)>(&EmailScanService::getMailAttachmentsDirectoryId));

// iTunesScanService
static_assert(std::derived_from<iTunesScanService, SuperScanService>);
static_assert(isOperation<SystemScan>(&iTunesScanService::scaniTunesJunk));
static_assert(isOperation<SystemScan>(&iTunesScanService::scanProiTunesJunk));

// PhotoScanService
static_assert(std::derived_from<PhotoScanService, SuperScanService>);
static_assert(isOperation<SystemScan>(&PhotoScanService::scaniPhotoJunk));  // "scani"
static_assert(isOperation<SystemScan>(&PhotoScanService::scanProiPhotoJunk));
static_assert(isOperation<std::optional<URL>()>(&PhotoScanService::getPhotoslibraryPath));
static_assert(PhotoScanService::osx12PhotoPath1 == "resources/media/face" &&
              PhotoScanService::osx12PhotoPath2 == "resources/media/master" &&
              PhotoScanService::osx12PhotoPath3 == "resources/Version" &&
              PhotoScanService::osx11PhotoPath1 == "resources/media/moduleresources");

// LargeAndOldFileService
using LargeAndOldDone = std::function<void(FeatureInformation&, std::int64_t)>;
using LargeAndOldScan = void(FeatureInformation&, ProgressFunc, PercentFunc, SingleDoneFunc, LargeAndOldDone,
                             Serial);
using LargeAndFileKind = LargeAndOldFileService::LargeAndFileKind;
static_assert(std::derived_from<LargeAndOldFileService, SuperScanService>);
static_assert(rawValue(LargeAndFileKind::Archives) == 0 && rawValue(LargeAndFileKind::Picture) == 1 &&
              rawValue(LargeAndFileKind::Movies) == 2 && rawValue(LargeAndFileKind::Music) == 3 &&
              rawValue(LargeAndFileKind::Other) == 4 && rawValue(LargeAndFileKind::OneYear) == 5 &&
              rawValue(LargeAndFileKind::OneMonth) == 6 && rawValue(LargeAndFileKind::OneWeek) == 7 &&
              rawValue(LargeAndFileKind::LastWeek) == 8 && rawValue(LargeAndFileKind::Huge) == 9 &&
              rawValue(LargeAndFileKind::Average) == 10 && rawValue(LargeAndFileKind::Small) == 11);
static_assert(LargeAndOldFileService::HugeSize == 524'288'000 &&
              LargeAndOldFileService::AverageSize == 104'857'600);
static_assert(isOperation<LargeAndOldScan>(&LargeAndOldFileService::scanLargeAndOldFile));
static_assert(isOperation<LargeAndOldScan>(&LargeAndOldFileService::scanProLargeAndOldFileFast));
static_assert(isOperation<void(FeatureInformation&, ProgressFunc, PercentFunc, SingleDoneFunc,
                               LargeAndOldDone, Serial, std::shared_ptr<PercentService>)>(
    &LargeAndOldFileService::scanProLargeAndOldFileCommon));
static_assert(isOperation<Integer(const FileInformation&)>(&LargeAndOldFileService::sortTypeFile));
static_assert(isOperation<void(CategoryInformation&, FileInformation&, Date, Date, Date)>(
    &LargeAndOldFileService::addToChildrenCategory));
static_assert(isOperation<std::tuple<std::int64_t, std::vector<Ref<FileInformation>>, std::string>(
                  CategoryInformation&)>(&LargeAndOldFileService::sortCategory));
static_assert(std::is_same_v<LargeAndOldFileService::Rows, std::map<Integer, CategoryInformation*>>);

// DuplicateScanService
static_assert(std::derived_from<DuplicateScanService, SuperScanService>);
static_assert(!std::is_default_constructible_v<DuplicateScanService>);
using DuplicateGroup = DuplicateScanService::DuplicateKind;
static_assert(rawValue(DuplicateGroup::File) == 0 && rawValue(DuplicateGroup::Folder) == 1 &&
              rawValue(DuplicateGroup::Document) == 2 && rawValue(DuplicateGroup::Media) == 3 &&
              rawValue(DuplicateGroup::Picture) == 4 && rawValue(DuplicateGroup::Other) == 5 &&
              rawValue(DuplicateGroup::Archive) == 6);
static_assert(std::same_as<decltype(DuplicateScanService::limitSize), Integer>);
static_assert(std::same_as<decltype(DuplicateScanService::childrenCateogryDict),  // "Cateogry"
                           std::map<Integer, std::string>>);
static_assert(isField<Integer>(&DuplicateScanService::DuplicateInfo::fileNumSum));
static_assert(isField<Integer>(&DuplicateScanService::DuplicateInfo::fileSize));
static_assert(isField<URL>(&DuplicateScanService::DuplicateInfo::path));
static_assert(isField<bool>(&DuplicateScanService::DuplicateInfo::fileOrPath));
static_assert(isField<SubfolderSizes>(&DuplicateScanService::DuplicateInfo::sizeList));
// The five fields in their order.
static_assert(requires(Integer fileNumSum, Integer fileSize, URL path, bool fileOrPath,
                       SubfolderSizes sizeList) {
  DuplicateScanService::DuplicateInfo{fileNumSum, fileSize, path, fileOrPath, sizeList};
});
using DuplicateDone = std::function<void(FeatureInformation&, std::int64_t)>;
using DuplicateScan = void(FeatureInformation&, const std::vector<URL>&, ProgressFunc, PercentFunc,
                           SingleDoneFunc, DuplicateDone, Serial, WeftQOS);
static_assert(isOperation<DuplicateScan>(&DuplicateScanService::scanDuplicate));
static_assert(isOperation<DuplicateScan>(&DuplicateScanService::scanProDuplicate));
static_assert(requires(FeatureInformation & feature, std::vector<URL> scanPaths, Serial dispatch) {
  DuplicateScanService::scanDuplicate(feature, scanPaths, {}, {}, {}, {}, dispatch);
  DuplicateScanService::scanProDuplicate(feature, scanPaths, {}, {}, {}, {}, dispatch);
});
static_assert(
    isOperation<void(FeatureInformation&, const std::vector<URL>&, ProgressFunc, PercentFunc, SingleDoneFunc,
                     DuplicateDone, Serial)>(&DuplicateScanService::scanTestAProDuplicate));
static_assert(
    isOperation<void(FeatureInformation&, const DuplicateDone&)>(&DuplicateScanService::stopDuplicate));
static_assert(isOperation<void(DuplicatesBySize preSizeAndFilePath, DuplicatesBySize sizeAndFolderPath,
                               FeatureInformation&, ProgressFunc, PercentFunc, SingleDoneFunc, DuplicateDone,
                               Serial, std::shared_ptr<PercentService>, WeftQOS)>(
    &DuplicateScanService::analysisDataForDuplicate));
static_assert(
    isOperation<void(DuplicatesByHash MD5AndFileInfo, DuplicatesByHash MD5AndFolderInfo, FeatureInformation&,
                     ProgressFunc, PercentFunc, SingleDoneFunc, DuplicateDone, Serial,
                     std::shared_ptr<PercentService>)>(&DuplicateScanService::organizeDataForDuplicate));
static_assert(
    isOperation<std::tuple<std::string, std::vector<URL>, std::int64_t, std::unordered_set<URL>>(const URL&)>(
        &DuplicateScanService::getMD5FromFolderPath));
static_assert(isOperation<std::vector<Integer>(const FileInformation&)>(&DuplicateScanService::sortFile));
static_assert(isOperation<std::tuple<std::int64_t, FileRecords, std::string>(CategoryInformation&)>(
    &DuplicateScanService::sortCategory));

// DuplicateNode, DuplicateFolderInfo, DuplicateFileTree
static_assert(isField<Integer>(&DuplicateNode::nodeDeep));
static_assert(isField<Integer>(&DuplicateNode::nodePropertyValue));
static_assert(isField<Integer>(&DuplicateNode::fileOrFolderNode));
static_assert(isField<std::vector<std::string>>(&DuplicateNode::folderPaths));
static_assert(isField<std::vector<std::string>>(&DuplicateNode::filePaths));
static_assert(isField<FileRecords>(&DuplicateNode::sameFiles));
static_assert(isField<std::map<std::string, std::shared_ptr<DuplicateNode>>>(&DuplicateNode::childrenNode));
static_assert(isField<std::shared_ptr<DuplicateFolderInfo>>(&DuplicateNode::folderInfo));
// The eight fields in their order.
static_assert(requires(Integer number, std::vector<std::string> paths, FileRecords sameFiles,
                       std::map<std::string, std::shared_ptr<DuplicateNode>> childrenNode,
                       std::shared_ptr<DuplicateFolderInfo> folderInfo) {
  DuplicateNode{number, number, number, paths, paths, sameFiles, childrenNode, folderInfo};
});
static_assert(isMethod<void(const std::shared_ptr<DuplicateNode>&, const Ref<FileInformation>&,
                            const std::vector<std::string>&, std::string_view)>(&DuplicateNode::inputNode));
static_assert(isOperation<std::string(std::vector<std::string>)>(&DuplicateNode::calculationDistanceString));
static_assert(isField<std::vector<std::string>>(&DuplicateFolderInfo::rootPath));
static_assert(isField<std::map<std::string, std::pair<Integer, std::vector<std::shared_ptr<DuplicateNode>>>>>(
    &DuplicateFolderInfo::foldersAndNodesInfo));
static_assert(isOperation<Integer(std::string_view, std::string_view)>(&DuplicateFolderInfo::calculateValue));
static_assert(isMethod<void(std::string_view, const Ref<FileInformation>&)>(&DuplicateFileTree::addNode));
static_assert(isMethod<void()>(&DuplicateFileTree::tree));

}  // namespace
}  // namespace sorrel
