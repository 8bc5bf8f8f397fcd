// The public names of the clean and of the access to the helper. PublicNames.hpp defines the checks.
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
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
#include "SorrelFramework/Model/Enumerations.hpp"
#include "Tests/Contract/PublicNames.hpp"

namespace sorrel {
namespace {

using CategoryList = std::vector<Ref<CategoryInformation>>;

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
// The four operations can be overridden.
struct OverridingService : HelperCleanService {
  using HelperCleanService::HelperCleanService;
  void allFinish() override {}
  void commonFinish() override {}
  void deleteHelperFile() override {}
  std::pair<FileRecords, std::string> sortCategory(HelperCleanService&) override { return {}; }
};

}  // namespace
}  // namespace sorrel
