#include "Helper/EventForm.hpp"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel::helper {
namespace {

using Kind = HelperHanldeEventID;
using Error = HelperEventErrorID;

const HelperDictionary kEmpty;

std::optional<EventForm> formOf(std::int32_t id, const std::optional<HelperDictionary>& dictionary,
                                bool hasViews = true) {
  HelperMessage message{HelperMessage::Kind::Event, dictionary, {}};
  if (hasViews && dictionary.has_value()) message.views.resize(dictionary->size());
  const std::string bytes = encodeHelperMessage(message).value();
  return EventForm::of(id, MessageView::of(bytes, HelperMessage::Kind::Event).value());
}

TEST(EventForm, eachKindHasItsActionFailureAndName) {
  const HelperDictionary target{{"ToPath", "/b"}};
  const std::vector<std::tuple<int, HelperDictionary, std::size_t, Action, Error, std::string>> rows = {
      {0,
       {{"/a", HelperDictionary{{"0", 1}}}, {"/b", kEmpty}},
       2,
       Action::Delete,
       Error::DeleteError,
       "delete"},
      {1, {{"/a", kEmpty}}, 1, Action::Shred, Error::ShreadFail, "shred"},
      {2, {{"OperationValue", 0}}, 0, Action::Maintenance, Error::NoCause, "clean-dns"},
      {2, {{"OperationValue", 1}}, 0, Action::Maintenance, Error::NoCause, "rebuild-index"},
      {2, {{"OperationValue", 2}, {"/a", kEmpty}}, 1, Action::Delete, Error::DeleteError, "clean"},
      {2, {{"OperationValue", 3}, {"/a", target}}, 1, Action::Move, Error::MoveFail, "move"},
  };
  for (const auto& [id, dictionary, paths, action, failure, name] : rows) {
    const auto form = formOf(id, dictionary);
    ASSERT_TRUE(form.has_value()) << name;
    EXPECT_EQ(static_cast<int>(form->kind), id);
    EXPECT_EQ(form->paths, paths) << name;
    EXPECT_EQ(form->action(), action) << name;
    EXPECT_EQ(form->failure(), failure) << name;
    EXPECT_EQ(form->name(), name);
  }
}

TEST(EventForm, actionsAreCalledByPlainWords) {
  EXPECT_STREQ(nameOf(Action::Delete), "delete");
  EXPECT_STREQ(nameOf(Action::Shred), "shred");
  EXPECT_STREQ(nameOf(Action::Move), "move");
  EXPECT_STREQ(nameOf(Action::Maintenance), "maintenance");
}

TEST(EventForm, whatIsBesideTheStatedFormIsNone) {
  const HelperDictionary numbers{{"0", 1}};
  const std::vector<std::pair<int, HelperDictionary>> events = {
      {-1, {}},
      {4, {}},
      // Delete
      {0, {{"/a", 1}}},
      {0, {{"/a", "text"}}},
      {0, {{"/a", HelperDictionary{{"0", "text"}}}}},
      {0, {{"/a", HelperDictionary{{"x", 1}}}}},
      {0, {{"/a", HelperDictionary{{"", 1}}}}},
      {0, {{"/a", HelperDictionary{{"DeleteStatus", 0}}}}},
      {0, {{"/a", numbers}, {"OperationValue", 2}}},
      // Shred
      {1, {{"/a", numbers}}},
      {1, {{"/a", 1}}},
      // Maintenance
      {2, {}},
      {2, {{"/a", kEmpty}}},
      {2, {{"OperationValue", 4}}},
      {2, {{"OperationValue", -1}}},
      {2, {{"OperationValue", std::int64_t{1} << 32}}},
      {2, {{"OperationValue", "2"}}},
      {2, {{"OperationValue", 0}, {"/a", kEmpty}}},
      {2, {{"OperationValue", 1}, {"/a", kEmpty}}},
      {2, {{"OperationValue", 2}, {"/a", numbers}}},
      {2, {{"OperationValue", 3}, {"/a", kEmpty}}},
      {2, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", 1}}}}},
      {2, {{"OperationValue", 3}, {"/a", HelperDictionary{{"Elsewhere", "/b"}}}}},
      {2, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", "/b"}, {"x", 1}}}}},
      // CloseHelper is a method of its own
      {3, {}},
  };
  for (std::size_t i = 0; i < events.size(); ++i) {
    EXPECT_FALSE(formOf(events[i].first, events[i].second).has_value()) << i;
  }
}

TEST(EventForm, anEventNeedsADictionaryAndAWordAboutEachPath) {
  for (int id = 0; id < 3; ++id) EXPECT_FALSE(formOf(id, std::nullopt).has_value()) << id;
  EXPECT_FALSE(formOf(0, HelperDictionary{{"/a", kEmpty}}, false).has_value());
  EXPECT_TRUE(formOf(0, kEmpty, false).has_value());
}

TEST(EventForm, theAnnouncedFormIsTheOneOfTheEvent) {
  const std::vector<std::tuple<int, int, int, HelperDictionary>> events = {
      {0, -1, 2, {{"/a", HelperDictionary{{"0", 1}}}, {"/b", kEmpty}}},
      {0, -1, 0, {}},
      {1, -1, 1, {{"/a", kEmpty}}},
      {2, 0, 0, {{"OperationValue", 0}}},
      {2, 2, 2, {{"OperationValue", 2}, {"/a", kEmpty}, {"z", kEmpty}}},
      {2, 3, 1, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", "/b"}}}}},
  };
  for (const auto& [id, operation, paths, dictionary] : events) {
    const auto announced = EventForm::announced(id, operation, static_cast<std::uint32_t>(paths));
    ASSERT_TRUE(announced.has_value()) << id << operation;
    EXPECT_TRUE(announced == formOf(id, dictionary)) << id << operation;
  }
}

TEST(EventForm, noOtherFormCanBeAnnounced) {
  for (const int id : {-1, 3, 4, INT32_MAX, INT32_MIN}) EXPECT_FALSE(EventForm::announced(id, -1, 0));
  for (const int operation : {-1, -2, 4, 256}) EXPECT_FALSE(EventForm::announced(2, operation, 1));
  EXPECT_FALSE(EventForm::announced(0, 2, 1)) << "a Delete has no operation";
  EXPECT_FALSE(EventForm::announced(2, 0, 1)) << "nor this one a path";
  EXPECT_TRUE(EventForm::announced(0, -1, HelperLimits::paths));
  EXPECT_FALSE(EventForm::announced(0, -1, HelperLimits::paths + 1));
}

TEST(EventForm, whetherAPathIsSoundIsNotItsBusiness) {
  EXPECT_TRUE(formOf(1, HelperDictionary{{"", kEmpty}, {"../x", kEmpty}, {"a", kEmpty}}).has_value());
}

}  // namespace
}  // namespace sorrel::helper
