#include "SorrelFramework/Removal/LookupError.hpp"

#include <gtest/gtest.h>

#include <cerrno>

namespace sorrel {
namespace {

TEST(LookupError, missingOrClosedPlacesAreAnAnswer) {
  for (const int error : {ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG, EACCES, EPERM})
    EXPECT_TRUE(tellsOfNoPlace(error)) << error;
}

TEST(LookupError, volumesThatAreGoneAreAnAnswer) {
  for (const int error : {ENXIO, ENODEV, ENOTCONN, EHOSTDOWN, EHOSTUNREACH, ETIMEDOUT, ESTALE}) {
    EXPECT_TRUE(tellsOfNoPlace(error)) << error;
  }
}

TEST(LookupError, whatIsClosedOrGoneMayStillBeAPlace) {
  for (const int error : {EACCES, EPERM, ENXIO, ENODEV, ENOTCONN, EHOSTDOWN, EHOSTUNREACH, ETIMEDOUT, ESTALE})
    EXPECT_TRUE(tellsOfPlaceOutOfReach(error)) << error;
  for (const int error : {ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG, EIO, EMFILE, ENOMEM, 0})
    EXPECT_FALSE(tellsOfPlaceOutOfReach(error)) << error;
}

TEST(LookupError, failuresOfTheMachineAreNone) {
  for (const int error : {EIO, EMFILE, ENFILE, ENOMEM, EINTR, EAGAIN, EBUSY, ENOTSUP, EBADF, 0}) {
    EXPECT_FALSE(tellsOfNoPlace(error)) << error;
  }
}

}  // namespace
}  // namespace sorrel
