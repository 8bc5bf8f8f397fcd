#include "SorrelFramework/Model/Enumerations.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <optional>

namespace sorrel {
namespace {

/// `row` stands for `raw` in both directions.
template <class Enumeration>
void expectRow(Enumeration row, Integer raw) {
  EXPECT_EQ(rawValue(row), raw);
  EXPECT_EQ(fromRawValue<Enumeration>(raw), row);
}

/// There is no case outside [first, last].
template <class Enumeration>
void expectNothingBeyond(Integer first, Integer last) {
  EXPECT_EQ(fromRawValue<Enumeration>(first - 1), std::nullopt);
  EXPECT_EQ(fromRawValue<Enumeration>(last + 1), std::nullopt);
  EXPECT_EQ(fromRawValue<Enumeration>(std::numeric_limits<Integer>::min()), std::nullopt);
  EXPECT_EQ(fromRawValue<Enumeration>(std::numeric_limits<Integer>::max()), std::nullopt);
}

TEST(ControlState, hasTheThreeTickStates) {
  EXPECT_EQ(Integer{NSControlStateValueMixed}, -1);
  EXPECT_EQ(Integer{NSControlStateValueOff}, 0);
  EXPECT_EQ(Integer{NSControlStateValueOn}, 1);
}

TEST(FilesKind, rowsKeepTheirRawValues) {
  expectRow(FilesKind::Folder, 0);
  expectRow(FilesKind::File, 1);
  expectRow(FilesKind::Package, 2);
  expectRow(FilesKind::Privacy, 3);
  expectRow(FilesKind::Maintenance, 4);
  expectNothingBeyond<FilesKind>(0, 4);
}

TEST(LargeAndOldFilesKind, rowsKeepTheirRawValues) {
  expectRow(LargeAndOldFilesKind::All, 0);
  expectRow(LargeAndOldFilesKind::ByType, 1);
  expectRow(LargeAndOldFilesKind::ByDate, 2);
  expectRow(LargeAndOldFilesKind::BySize, 3);
  expectNothingBeyond<LargeAndOldFilesKind>(0, 3);
}

TEST(DuplicateKind, rowsKeepTheirRawValues) {
  expectRow(DuplicateKind::All, 0);
  expectRow(DuplicateKind::ByDocument, 1);
  expectRow(DuplicateKind::ByFile, 2);
  expectRow(DuplicateKind::ByMedia, 3);
  expectRow(DuplicateKind::ByPicture, 4);
  expectRow(DuplicateKind::ByOther, 5);
  expectNothingBeyond<DuplicateKind>(0, 5);
}

TEST(DeleteStatus, rowsKeepTheirRawValues) {
  expectRow(DeleteStatus::None, 0);
  expectRow(DeleteStatus::Deleteing, 1);
  expectRow(DeleteStatus::DeleteSuccess, 2);
  expectRow(DeleteStatus::DeleteError, 3);
  expectNothingBeyond<DeleteStatus>(0, 3);
}

TEST(CategoryInfomationKind, rowsKeepTheirRawValues) {
  expectRow(CategoryInfomationKind::Common, 1);
  expectRow(CategoryInfomationKind::SystemCache, 2);
  expectRow(CategoryInfomationKind::OtherTrashBin, 3);
  expectRow(CategoryInfomationKind::EmailAttachment, 4);
  expectRow(CategoryInfomationKind::LargeAndOldFileAllSet, 5);
  expectRow(CategoryInfomationKind::App, 6);
  expectRow(CategoryInfomationKind::Privacy, 7);
  expectRow(CategoryInfomationKind::FreeUpRAM, 8);
  expectRow(CategoryInfomationKind::FreeUpPurgeableSpace, 9);
  expectRow(CategoryInfomationKind::SpeedUpMail, 10);
  expectRow(CategoryInfomationKind::CleanDNS, 11);
  expectRow(CategoryInfomationKind::LoginItem, 12);
  expectNothingBeyond<CategoryInfomationKind>(1, 12);
}

TEST(CategoryInfomationKind, startsAtOne) {
  EXPECT_EQ(fromRawValue<CategoryInfomationKind>(0), std::nullopt);
}

}  // namespace
}  // namespace sorrel
