// The public names of the records, of the platform, and of the units. PublicNames.hpp defines the checks.
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
#include <type_traits>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Model/ScanFileInfo.hpp"
#include "SorrelFramework/Native/FileHash.hpp"
#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/MD5.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"
#include "SorrelFramework/Units/SqliteTool.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "SorrelFramework/Units/TerminalTool.hpp"
#include "Tests/Contract/PublicNames.hpp"

namespace sorrel {
namespace {

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
static_assert(isField<std::any>(&FileInformation::attachInformation));  // spelt correctly at this level only
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

TEST(PublicNames, sharedInstanceIsOneForTheProcess) {
  EXPECT_EQ(&StreamFileHashUnit::shard(), &StreamFileHashUnit::shard());
}

TEST(PublicNames, logLevelsAreTheWordsDebugAndInfo) {
  EXPECT_EQ(LogService::rawValue(LogService::LogLevel::Debug), "Debug");
  EXPECT_EQ(LogService::rawValue(LogService::LogLevel::Info), "Info");
}

}  // namespace
}  // namespace sorrel
