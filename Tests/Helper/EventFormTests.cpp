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
      {3, {}, 0, Action::Maintenance, Error::NoCause, "close"},
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
  EXPECT_STREQ(nameOf(Action::Uninstall), "uninstall");
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
      // CloseHelper
      {3, {{"/a", kEmpty}}},
  };
  for (std::size_t i = 0; i < events.size(); ++i) {
    EXPECT_FALSE(formOf(events[i].first, events[i].second).has_value()) << i;
  }
}

TEST(EventForm, anEventNeedsADictionaryAndAWordAboutEachPath) {
  for (int id = 0; id < 4; ++id) EXPECT_FALSE(formOf(id, std::nullopt).has_value()) << id;
  EXPECT_FALSE(formOf(0, HelperDictionary{{"/a", kEmpty}}, false).has_value());
  EXPECT_TRUE(formOf(3, kEmpty, false).has_value());
}

std::optional<EventHeading> headingOf(std::int32_t id, const HelperDictionary& dictionary) {
  HelperMessage message{HelperMessage::Kind::Event, dictionary, {}};
  message.views.resize(dictionary.size());
  return EventHeading::of(id, encodeHelperMessage(message).value());
}

TEST(EventHeading, saysWhatTheFormSays) {
  const std::vector<std::pair<int, HelperDictionary>> events = {
      {0, {{"/a", HelperDictionary{{"0", 1}}}, {"/b", kEmpty}}},
      {0, {}},
      {1, {{"/a", kEmpty}}},
      {2, {{"OperationValue", 0}}},
      {2, {{"OperationValue", 2}, {"/a", kEmpty}, {"z", kEmpty}}},
      {2, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", "/b"}}}}},
      {3, {}},
  };
  for (const auto& [id, dictionary] : events) {
    const auto heading = headingOf(id, dictionary);
    const auto form = formOf(id, dictionary);
    ASSERT_TRUE(heading.has_value() && form.has_value());
    EXPECT_EQ(heading->kind, form->kind);
    EXPECT_EQ(heading->action, form->action());
    EXPECT_EQ(heading->paths, form->paths);
  }
}

TEST(EventHeading, whatCanBeNoEventHasNone) {
  for (const int id : {-1, 4}) EXPECT_FALSE(headingOf(id, {}).has_value());
  EXPECT_FALSE(headingOf(3, {{"/a", kEmpty}}).has_value());
  EXPECT_FALSE(headingOf(2, {{"/a", kEmpty}}).has_value());
  EXPECT_FALSE(EventHeading::of(0, "").has_value());
  const HelperMessage none{HelperMessage::Kind::Event, std::nullopt, {}};
  EXPECT_FALSE(EventHeading::of(0, encodeHelperMessage(none).value()).has_value());
}

TEST(EventHeading, anEventOfFilesIsNotReadBehindItsHead) {
  const std::string head("\1\1\1\2\0\0\0", 7);
  EXPECT_EQ(EventHeading::of(0, head)->paths, 2U);
  EXPECT_EQ(EventHeading::of(1, head + "nonsense")->paths, 2U);
  EXPECT_FALSE(EventHeading::of(2, head + "nonsense").has_value());
}

TEST(EventHeading, aLongMaintenanceEventIsNone) {
  HelperDictionary event{{"OperationValue", 2}};
  for (int i = 0; i < 4; ++i) event["/" + std::to_string(i) + std::string(1'000'000, 'x')] = kEmpty;
  EXPECT_TRUE(headingOf(2, event).has_value());
  event["/4" + std::string(1'000'000, 'x')] = kEmpty;
  EXPECT_FALSE(headingOf(2, event).has_value());
}

TEST(EventForm, whetherAPathIsSoundIsNotItsBusiness) {
  EXPECT_TRUE(formOf(1, HelperDictionary{{"", kEmpty}, {"../x", kEmpty}, {"a", kEmpty}}).has_value());
}

}  // namespace
}  // namespace sorrel::helper
