// The names that applications compile against, letter for letter with their slips of spelling, and the types
// behind them. Nearly all of it is checked by the compiler: a rename does not build.

#include <gtest/gtest.h>

#include <any>
#include <atomic>
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

#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Clean/CleanServiceProtocol.hpp"
#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Clean/HelperCleanService.hpp"
#include "SorrelFramework/Clean/RecordSet.hpp"
#include "SorrelFramework/HelpTool/ClosePrivilegeTool.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/HelpTool/PrivilegeInstallResult.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Model/ScanFileInfo.hpp"
#include "SorrelFramework/Native/FileHash.hpp"
#include "SorrelFramework/Platform/WeftSerialQueue.hpp"
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
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/MD5.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"
#include "SorrelFramework/Units/SqliteTool.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "SorrelFramework/Units/TerminalTool.hpp"

namespace sorrel {
namespace {

/// A public field of exactly this type.
template <class Type, class Owner>
constexpr bool isField(Type Owner::*) {
  return true;
}
/// A class-level operation of exactly this type.
template <class Signature>
constexpr bool isOperation(Signature*) {
  return true;
}
/// An operation of an object of exactly this type.
template <class Signature, class Owner>
constexpr bool isMethod(Signature Owner::*) {
  return true;
}

static_assert(std::is_same_v<Integer, std::int64_t>);

// ModuleInformation
static_assert(isField<Integer>(&ModuleInformation::finderID));
static_assert(isField<std::string>(&ModuleInformation::title));
static_assert(isField<std::string>(&ModuleInformation::type));
static_assert(isField<Image>(&ModuleInformation::image));
static_assert(isField<std::string>(&ModuleInformation::description));
static_assert(isField<std::string>(&ModuleInformation::version));
static_assert(isField<Children<FeatureInformation>>(&ModuleInformation::featureInfo));
static_assert(isOperation<std::vector<Ref<ModuleInformation>>(const std::optional<std::string>&)>(
    &ModuleInformation::getModule));
static_assert(isOperation<std::string(std::string_view)>(&ModuleInformation::updateModuleURL));
static_assert(requires(std::string text, Integer number, Image image,
                       Children<FeatureInformation> featureInfo) {
  new ModuleInformation(number, text, text, image, text, text, featureInfo);
  ModuleInformation::getModule();
});

// FeatureInformation
static_assert(isField<Integer>(&FeatureInformation::finderID));
static_assert(isField<Integer>(&FeatureInformation::state));
static_assert(isField<Image>(&FeatureInformation::icon));
static_assert(isField<std::string>(&FeatureInformation::title));
static_assert(isField<std::string>(&FeatureInformation::description));
static_assert(isField<Children<CategoryInformation>>(&FeatureInformation::categoryInfo));
static_assert(isField<ParentLink<ModuleInformation>>(&FeatureInformation::moduleInfo));
static_assert(isField<std::any>(&FeatureInformation::attachInfomation));  // "Infomation"
static_assert(requires(std::string text, Integer number, Image image,
                       Children<CategoryInformation> categoryInfo, Ref<ModuleInformation> moduleInfo,
                       std::any attachInfomation) {
  new FeatureInformation(number, number, image, text, text, categoryInfo, moduleInfo, attachInfomation);
});

// CategoryInformation
static_assert(isField<Integer>(&CategoryInformation::state));
static_assert(isField<Observed<CategoryInformation>>(&CategoryInformation::finderID));
static_assert(isField<std::string>(&CategoryInformation::title));
static_assert(isField<Image>(&CategoryInformation::icon));
static_assert(isField<std::int64_t>(&CategoryInformation::size));
static_assert(isField<std::string>(&CategoryInformation::description));
static_assert(isField<Integer>(&CategoryInformation::kind));
static_assert(isField<std::vector<URL>>(&CategoryInformation::urls));
static_assert(isField<Children<FileInformation>>(&CategoryInformation::childrens));  // "childrens"
static_assert(isField<ParentLink<FeatureInformation>>(&CategoryInformation::featureInfo));
static_assert(isField<std::any>(&CategoryInformation::attachInfomation));  // "Infomation"
static_assert(isField<std::string>(&CategoryInformation::hashValueString));
static_assert(isField<Integer>(&CategoryInformation::levelInt));
static_assert(isField<bool>(&CategoryInformation::needRemoveCategory));
static_assert(isField<std::optional<Children<CategoryInformation>>>(
    &CategoryInformation::childrenCateogry));  // "Cateogry"
static_assert(isField<ParentLink<CategoryInformation>>(&CategoryInformation::parentCategory));
static_assert(requires(std::string text, Integer number, Image image, std::int64_t size,
                       std::vector<URL> urls, Children<FileInformation> childrens,
                       Ref<FeatureInformation> featureInfo, std::any attachInfomation, bool flag) {
  new CategoryInformation(number, number, text, image, size, text, number, urls, childrens, featureInfo,
                          attachInfomation, number, flag);
});

// FileInformation
static_assert(isField<Integer>(&FileInformation::state));
static_assert(isField<Observed<FileInformation>>(&FileInformation::finderID));
static_assert(isField<Integer>(&FileInformation::parentFinderID));
static_assert(isField<std::string>(&FileInformation::title));
static_assert(isField<Image>(&FileInformation::icon));
static_assert(isField<std::int64_t>(&FileInformation::size));
static_assert(isField<Date>(&FileInformation::date));
static_assert(isField<URL>(&FileInformation::url));
static_assert(isField<bool>(&FileInformation::canDelete));
static_assert(isField<bool>(&FileInformation::removeCategory));
static_assert(isField<IdentityText>(&FileInformation::hashValueString));
static_assert(std::convertible_to<IdentityText, std::string>);
static_assert(isField<std::any>(&FileInformation::attachInformation));  // spelt correctly at this level alone
static_assert(isField<Children<FileInformation>>(&FileInformation::childrens));
static_assert(isField<ParentLink<CategoryInformation>>(&FileInformation::parentCategoryInfo));
static_assert(isField<Integer>(&FileInformation::fileKind));
static_assert(isField<Integer>(&FileInformation::levelInt));
static_assert(isField<ParentLink<FileInformation>>(&FileInformation::parentFileInfo));
static_assert(isField<Integer>(&FileInformation::deleteStatus));
static_assert(isField<std::string>(&FileInformation::deleteErrorDesc));
static_assert(std::equality_comparable<FileInformation>);
static_assert(std::invocable<std::hash<FileInformation>, const FileInformation&>);
static_assert(requires(std::string text, Integer number, Image image, std::int64_t size, Date date, URL url,
                       bool flag, std::any attachInformation, Children<FileInformation> childrens,
                       Ref<CategoryInformation> parentCategoryInfo, Ref<FileInformation> parentFileInfo) {
  new FileInformation(number, number, number, text, image, size, date, url, text, flag, flag,
                      attachInformation, childrens, parentCategoryInfo, number, number);
  new FileInformation(number, number, number, text, image, size, date, url, text, flag, flag,
                      attachInformation, childrens, parentCategoryInfo, number, number, parentFileInfo);
});

// ScanFilesInformation
static_assert(isField<URL>(&ScanFilesInformation::url));
static_assert(isField<std::int64_t>(&ScanFilesInformation::folderSize));
static_assert(isField<Integer>(&ScanFilesInformation::folderNumber));
static_assert(isField<std::int64_t>(&ScanFilesInformation::fileSize));
static_assert(isField<Integer>(&ScanFilesInformation::fileNumber));
static_assert(std::constructible_from<ScanFilesInformation, URL>);
static_assert(
    std::constructible_from<ScanFilesInformation, URL, std::int64_t, Integer, std::int64_t, Integer>);

// Tick states and enumerations, which records and tables hold as raw values
static_assert(NSControlStateValueMixed == -1 && NSControlStateValueOff == 0 && NSControlStateValueOn == 1);

static_assert(rawValue(FilesKind::Folder) == 0 && rawValue(FilesKind::File) == 1 &&
              rawValue(FilesKind::Package) == 2 && rawValue(FilesKind::Privacy) == 3 &&
              rawValue(FilesKind::Maintenance) == 4);

static_assert(rawValue(LargeAndOldFilesKind::All) == 0 && rawValue(LargeAndOldFilesKind::ByType) == 1 &&
              rawValue(LargeAndOldFilesKind::ByDate) == 2 && rawValue(LargeAndOldFilesKind::BySize) == 3);

static_assert(rawValue(DuplicateKind::All) == 0 && rawValue(DuplicateKind::ByDocument) == 1 &&
              rawValue(DuplicateKind::ByFile) == 2 && rawValue(DuplicateKind::ByMedia) == 3 &&
              rawValue(DuplicateKind::ByPicture) == 4 && rawValue(DuplicateKind::ByOther) == 5);

static_assert(rawValue(DeleteStatus::None) == 0 && rawValue(DeleteStatus::Deleteing) == 1 &&  // "Deleteing"
              rawValue(DeleteStatus::DeleteSuccess) == 2 && rawValue(DeleteStatus::DeleteError) == 3);

static_assert(rawValue(CategoryInfomationKind::Common) == 1 &&  // "Infomation"
              rawValue(CategoryInfomationKind::SystemCache) == 2 &&
              rawValue(CategoryInfomationKind::OtherTrashBin) == 3 &&
              rawValue(CategoryInfomationKind::EmailAttachment) == 4 &&
              rawValue(CategoryInfomationKind::LargeAndOldFileAllSet) == 5 &&
              rawValue(CategoryInfomationKind::App) == 6 && rawValue(CategoryInfomationKind::Privacy) == 7 &&
              rawValue(CategoryInfomationKind::FreeUpRAM) == 8 &&
              rawValue(CategoryInfomationKind::FreeUpPurgeableSpace) == 9 &&
              rawValue(CategoryInfomationKind::SpeedUpMail) == 10 &&
              rawValue(CategoryInfomationKind::CleanDNS) == 11 &&
              rawValue(CategoryInfomationKind::LoginItem) == 12);

static_assert(rawValue(ScanState::start) == 0 && rawValue(ScanState::end) == 1 &&
              rawValue(ScanState::suspend) == 2);

// MD5
static_assert(isOperation<std::string(std::string_view)>(&MD5));
static_assert(isOperation<std::string(std::string_view)>(&hex_md5));
using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::int32_t>;
static_assert(isOperation<Bytes(std::string_view)>(&str2rstr_utf8));
static_assert(isOperation<Bytes(const Bytes&)>(&rstr_md5));
static_assert(isOperation<std::string(const Bytes&)>(&rstr2hex));
static_assert(isOperation<std::string(const Bytes&)>(&rstr2tr));
static_assert(isOperation<Words(const Bytes&)>(&rstr2binl));
static_assert(isOperation<Words(const MD5Words&)>(&dictionary2array));
static_assert(isOperation<Bytes(const Words&)>(&binl2rstr));
static_assert(isOperation<Words(const Words&, int)>(&binl_md5));
static_assert(isOperation<int(const MD5Words&)>(&length));
static_assert(isOperation<std::int32_t(std::optional<std::int32_t>, std::int32_t)>(&unwrap));
static_assert(isOperation<std::int32_t(std::int32_t, int)>(&zeroFillRightShift));
static_assert(isOperation<std::int32_t(std::int32_t, std::int32_t)>(&safe_add));
static_assert(isOperation<std::int32_t(std::int32_t, int)>(&bit_rol));
static_assert(isOperation<std::int32_t(std::int32_t, std::int32_t, std::int32_t, std::int32_t, int,
                                       std::int32_t)>(&md5_cmn));
using MD5Round = std::int32_t(std::int32_t, std::int32_t, std::int32_t, std::int32_t, std::int32_t, int,
                              std::int32_t);
static_assert(isOperation<MD5Round>(&md5_ff) && isOperation<MD5Round>(&md5_gg) &&
              isOperation<MD5Round>(&md5_hh) && isOperation<MD5Round>(&md5_ii));

// TerminalUtils, TerminalUtilsClass
using Arguments = std::vector<std::string>;
using Queue = std::shared_ptr<WeftSerialQueue>;
using Finish = std::function<void(std::string)>;
static_assert(!std::is_default_constructible_v<TerminalUtils>);
static_assert(isOperation<std::string(const std::string&, const Arguments&)>(&TerminalUtils::runTerminal));
static_assert(isOperation<void(const std::string&, const Arguments&, const Queue&, Finish)>(
    &TerminalUtils::realTimeRunTerminal));
static_assert(isField<std::int64_t>(&TerminalUtilsClass::featureIndex));
static_assert(std::constructible_from<TerminalUtilsClass, std::int64_t>);
static_assert(
    isMethod<std::string(const std::string&, const Arguments&) const>(&TerminalUtilsClass::runTerminal));
static_assert(isMethod<void(const std::string&, const Arguments&, const Queue&, Finish) const>(
    &TerminalUtilsClass::realTimeRunTerminal));

// SqliteTool
static_assert(isField<sqlite3*>(&SqliteTool::runSqliteDB));
static_assert(std::is_default_constructible_v<SqliteTool>);
static_assert(isMethod<bool(const std::string&)>(&SqliteTool::openDB));
static_assert(isMethod<bool(const std::string&, bool)>(&SqliteTool::closeDB));
static_assert(requires(SqliteTool tool, std::string dbPath) { tool.closeDB(dbPath); });
static_assert(isMethod<std::pair<bool, std::string>(const std::string&)>(&SqliteTool::executionSQL));
static_assert(isMethod<std::vector<SqliteRow>(const std::string&)>(&SqliteTool::queryDBData));

// LogService
static_assert(std::is_same_v<std::underlying_type_t<LogService::LogLevel>, int>);
static_assert(isOperation<std::string_view(LogService::LogLevel)>(&LogService::rawValue));
static_assert(isOperation<LogService&()>(&LogService::shard));  // "shard"
static_assert(isMethod<void(LogService::LogLevel, std::string)>(&LogService::log));
static_assert(
    isMethod<void(LogService::LogLevel, const std::map<std::string, std::string>&)>(&LogService::logDict));
static_assert(isMethod<std::string(std::string_view) const>(&LogService::dateToString));
static_assert(requires(const LogService& service) { service.dateToString(); });
static_assert(isField<URL>(&LogService::logPath));
static_assert(isField<std::shared_ptr<WeftSerialQueue>>(&LogService::serialQueue));

// PercentService
static_assert(isField<std::function<void(float)>>(&PercentService::progressFunc));
static_assert(isField<std::int64_t>(&PercentService::totalStep));
static_assert(isField<std::atomic<std::int64_t>>(&PercentService::currentStep));
static_assert(isField<std::atomic<float>>(&PercentService::singleStep));
static_assert(isField<float>(&PercentService::increaseValue));
static_assert(isMethod<void()>(&PercentService::startTime));
static_assert(isMethod<void()>(&PercentService::progressStep));
static_assert(isMethod<void()>(&PercentService::updatePercent));
static_assert(isMethod<void()>(&PercentService::stopTime));
static_assert(std::constructible_from<PercentService, std::function<void(float)>, std::int64_t>);
static_assert(std::constructible_from<PercentService, std::function<void(float)>, std::int64_t, float>);

// WeftSerialQueue: ordinal 4 of the errors means "shut down for good", ordinal 2 of the qualities is the
// log's
static_assert(static_cast<int>(WeftRunError::ShutDown) == 4);
static_assert(static_cast<int>(WeftQOS::Default) == 2);
static_assert(isMethod<void(WeftSerialQueue::Task, WeftSerialQueue::Failure)>(&WeftSerialQueue::submit));
static_assert(std::constructible_from<WeftSerialQueue, WeftQOS>);

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

// StreamFileHashUnit
static_assert(isOperation<StreamFileHashUnit&()>(&StreamFileHashUnit::shard));  // "shard"
static_assert(isField<std::atomic<int>>(&StreamFileHashUnit::scanState));
static_assert(isMethod<std::optional<std::string>(const std::string&) const>(&StreamFileHashUnit::hashFile));

// FileHash
static_assert(!std::is_default_constructible_v<FileHash>);
using HashOfFile = std::string(const std::string&);
static_assert(isOperation<HashOfFile>(&FileHash::md5HashOfFileAtPath));
static_assert(isOperation<HashOfFile>(&FileHash::SHA512HashOfFileAtPath));
static_assert(isOperation<std::string(const std::string&, const FileHashComputationContext&)>(
    &FileHash::hashOfFileAtPath));
// The five members in their order.
static_assert(requires(bool (*init)(void*), bool (*update)(void*, const void*, std::uint32_t),
                       bool (*final)(std::uint8_t*, void*), std::size_t length, void* digest) {
  FileHashComputationContext{init, update, final, length, digest};
});

// PrivilegeHelper
static_assert(isOperation<PrivilegeHelper&()>(&PrivilegeHelper::shard));  // "shard"
static_assert(isMethod<std::shared_ptr<HelperConnection>() const>(&PrivilegeHelper::helpConnect));
static_assert(isMethod<std::shared_ptr<HelperProtocol>() const>(&PrivilegeHelper::helpTool));
static_assert(
    isMethod<PrivilegeHelper::Tool(const std::string&, const std::string&)>(&PrivilegeHelper::getHelperTool));
static_assert(isField<std::shared_ptr<HelperProtocol>>(&PrivilegeHelper::Tool::helper));
static_assert(isField<std::optional<std::string>>(&PrivilegeHelper::Tool::message));
static_assert(isMethod<std::string(const std::string& privilegeType, const std::string& machServiceName)>(
    &PrivilegeHelper::installPrivilege));
static_assert(isMethod<void()>(&PrivilegeHelper::closeHelper));
static_assert(isOperation<void()>(&ClosePrivilegeTool::CloseHelper));
static_assert(std::same_as<decltype(PrivilegeInstallResult::blessError(2)), PrivilegeInstallResult>);
static_assert(isOperation<PrivilegeInstallResult(std::int64_t)>(&PrivilegeInstallResult::blessError));
static_assert(std::same_as<decltype(PrivilegeInstallResult::success), const PrivilegeInstallResult>);
static_assert(
    std::same_as<decltype(PrivilegeInstallResult::authorizationFail), const PrivilegeInstallResult>);
static_assert(
    std::same_as<decltype(PrivilegeInstallResult::getAdmainFail), const PrivilegeInstallResult>);  // "Admain"
static_assert(isMethod<std::string() const>(&PrivilegeInstallResult::content));
static_assert(isMethod<void(HelperProtocol::VersionReply)>(&HelperProtocol::getHelperVersion));
static_assert(isMethod<void(std::int32_t, const HelperDictionary&, HelperProtocol::EventReply)>(
    &HelperProtocol::handleEvent));
static_assert(isMethod<void(HelperProtocol::UninstallReply)>(&HelperProtocol::uninstall));
template <class Enumeration>
constexpr std::int64_t number(Enumeration value) {
  return static_cast<std::int64_t>(value);
}
static_assert(number(HelperHanldeEventID::Delete) == 0 &&
              number(HelperHanldeEventID::Shred) == 1 &&  // "Hanlde"
              number(HelperHanldeEventID::Maintenance) == 2 && number(HelperHanldeEventID::CloseHelper) == 3);
static_assert(number(HelperEventErrorID::Success) == 0 && number(HelperEventErrorID::OverTime) == 1 &&
              number(HelperEventErrorID::DeleteError) == 2 && number(HelperEventErrorID::NoCause) == 3 &&
              number(HelperEventErrorID::ShreadFail) == 4 &&  // "Shread"
              number(HelperEventErrorID::MoveFail) == 5);

// CleanService
static_assert(rawValue(CleanServiceType::Common) == 0 && rawValue(CleanServiceType::LargeAndOldFile) == 1 &&
              rawValue(CleanServiceType::Duplicate) == 2 && rawValue(CleanServiceType::Similar) == 3 &&
              rawValue(CleanServiceType::Uninstall) == 4);
using CleanFinish = std::shared_ptr<CleanServiceProtocol>;
static_assert(isMethod<void(const CategoryList&, std::int64_t, const FileRecords&, Integer,
                            const std::string&)>(&CleanServiceProtocol::cleanFinished));
static_assert(isMethod<void(float)>(&CleanServiceProtocol::cleanProgress));
static_assert(!std::is_default_constructible_v<CleanService>);
static_assert(isOperation<void(CategoryList, CleanServiceType, CleanFinish, Ref<FeatureInformation>)>(
    &CleanService::cleanCategorys));
using CategoryClean = void(CategoryInformation&, CleanServiceType, CleanFinish);
static_assert(isOperation<CategoryClean>(&CleanService::cleanDuplicateAndSimilarCategorys));
static_assert(isOperation<CategoryClean>(&CleanService::cleanLargeAndOldCategorys));
static_assert(
    isOperation<void(FileInformation&, Integer, HelperCleanService&)>(&CleanService::updateDeleteStatus));
static_assert(isOperation<void(FileInformation&, HelperCleanService&)>(&CleanService::handleMixStatus));
static_assert(isOperation<void(HelperCleanService&)>(&CleanService::deleteFiles));
static_assert(isOperation<Integer(FileInformation&, const FileRemover::Session&)>(&CleanService::deleteFile));
static_assert(std::same_as<decltype(CleanService::fileManager), const FileRemover&>);

// HelperCleanService
static_assert(isField<CleanFinish>(&HelperCleanService::finishService));
static_assert(isField<CategoryList>(&HelperCleanService::cleanCategorys));
static_assert(isField<Integer>(&HelperCleanService::cleanFinshCount));  // "Finsh"
static_assert(isField<RecordSet>(&HelperCleanService::commonDelete));
static_assert(isField<RecordSet>(&HelperCleanService::commonDeleteAbnormal));
static_assert(isField<Integer>(&HelperCleanService::commonDeleteFinishCount));
static_assert(isField<Integer>(&HelperCleanService::commonDeleteAbnormalCount));
static_assert(isField<RecordSet>(&HelperCleanService::helperDelete));
static_assert(isField<Integer>(&HelperCleanService::helperDeleteFinishCount));
static_assert(isField<std::shared_ptr<HelperProtocol>>(&HelperCleanService::privilegeHelper));
static_assert(isField<Integer>(&HelperCleanService::errorStatus));
static_assert(isField<std::string>(&HelperCleanService::errorDesc));
static_assert(isField<CleanServiceType>(&HelperCleanService::cleanType));
static_assert(isField<std::int64_t>(&HelperCleanService::commonDeleteSize));
static_assert(isField<std::int64_t>(&HelperCleanService::helperDeleteSize));
static_assert(isField<Ref<FeatureInformation>>(&HelperCleanService::featureInformation));
static_assert(std::constructible_from<HelperCleanService, CleanFinish, CleanServiceType, CategoryList>);
static_assert(isMethod<void()>(&HelperCleanService::allFinish));
static_assert(isMethod<void()>(&HelperCleanService::commonFinish));
static_assert(isMethod<void()>(&HelperCleanService::deleteHelperFile));
static_assert(
    isMethod<std::pair<FileRecords, std::string>(HelperCleanService&)>(&HelperCleanService::sortCategory));
// The four operations are open to overriding.
struct OverridingService : HelperCleanService {
  using HelperCleanService::HelperCleanService;
  void allFinish() override {}
  void commonFinish() override {}
  void deleteHelperFile() override {}
  std::pair<FileRecords, std::string> sortCategory(HelperCleanService&) override { return {}; }
};

TEST(PublicNames, sharedInstanceIsOneForTheProcess) {
  EXPECT_EQ(&StreamFileHashUnit::shard(), &StreamFileHashUnit::shard());
}

TEST(PublicNames, logLevelsAreTheWordsDebugAndInfo) {
  EXPECT_EQ(LogService::rawValue(LogService::LogLevel::Debug), "Debug");
  EXPECT_EQ(LogService::rawValue(LogService::LogLevel::Info), "Info");
}

}  // namespace
}  // namespace sorrel
