#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "SorrelFramework/Removal/MountOrigins.hpp"
#include "Tests/Removal/MountStage.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/SilentFileSystem.hpp"

// The folder that a mount shows at a protected path has another path, by which it must not be removable
// either.

namespace sorrel {
namespace {

class Sources : public test::MountStage {
 protected:
  /// A helper's policy whose self-and-ancestors class contains the folder "place".
  [[nodiscard]] RemovalPolicy policyWithPlace() const {
    RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
    policy.protectSelfAndAncestors(volume_.path("place"));
    return policy;
  }
  /// Mounts an overlay with these options, whose paths begin with "@" for the volume.
  [[nodiscard]] bool overlay(std::string options, std::string_view at) const {
    for (std::size_t i = 0; (i = options.find('@', i)) != std::string::npos;) {
      options.replace(i, 1, volume_.path() + "/");
    }
    return ::mount("overlay", volume_.folder(at).c_str(), "overlay", 0, options.c_str()) == 0;
  }
};

TEST_F(Sources, ofABindMountInARefusedPlaceIsRefused) {
  volume_.file("data/x/lib/deep/file", "x");
  volume_.file("data/x/other", "x");
  expect(
      [&]() -> std::string {
        const std::string before = helpers(volume_.path("data/x/lib"));
        if (!bind(volume_.path("data/x/lib"), "kept/in/lib")) return "skip";
        std::string answers = before;
        for (const char* name : {"data/x/lib", "data/x/lib/deep", "data/x/lib/deep/file", "data/x/lib/none",
                                 "data/x", "data", "data/x/other"}) {
          answers += helpers(volume_.path(name));
        }
        return answers + roots(volume_.path("data/x/lib/deep/file")) + roots(volume_.path("data"));
      },
      "free refused refused refused refused refused refused free refused refused ");
}

TEST_F(Sources, ofABoundFileIsRefused) {
  volume_.file("data/file", "x");
  volume_.file("data/other", "x");
  const std::string point = volume_.file("kept/in/file", "x");
  expect(
      [&]() -> std::string {
        if (::mount(volume_.path("data/file").c_str(), point.c_str(), nullptr, MS_BIND, nullptr) != 0) {
          return "skip";
        }
        return helpers(volume_.path("data/file")) + helpers(volume_.path("data")) +
               helpers(volume_.path("data/other"));
      },
      "refused refused free ");
}

TEST_F(Sources, ofAPlaceStaysButWhatLiesInItMayGo) {
  volume_.file("data/x/place/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("data/x/place"), "place")) return "skip";
        std::string answers;
        for (const char* name : {"data", "data/x", "data/x/place", "data/x/place/file"}) {
          answers += ask(volume_.path(name), policyWithPlace());
        }
        return answers;
      },
      "refused refused refused free ");
}

TEST_F(Sources, ofAnExceptionStaysButWhatLiesInItMayGo) {
  volume_.file("data/x/open/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("data/x/open"), "kept/open")) return "skip";
        std::string answers;
        for (const char* name : {"data/x", "data/x/open", "data/x/open/file"}) {
          RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
          policy.allowSubtree(volume_.path("kept/open"));
          answers += answer(volume_.path(name), std::move(policy));
        }
        return answers;
      },
      "refused refused free ");
}

TEST_F(Sources, ofAFolderAboveARefusedPlaceIsRefused) {
  volume_.file("data/x/above/kept/file", "x");
  volume_.file("data/x/above/other/file", "x");
  volume_.link("kept", "above/kept");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("data/x/above"), "above")) return "skip";
        std::string answers;
        for (const char* name :
             {"data", "data/x/above", "data/x/above/kept", "data/x/above/kept/file", "data/x/above/other"}) {
          answers += helpers(volume_.path(name));
        }
        return answers;
      },
      "refused refused refused refused free ");
}

TEST_F(Sources, ofAMountOutsideEveryPlaceMayGo) {
  volume_.file("data/x/file", "x");
  volume_.folder("place");
  expect(
      [&]() -> std::string {
        // An item below a path of the first class is not part of it.
        if (!bind(volume_.path("data/x"), "place/in")) return "skip";
        return ask(volume_.path("data/x"), policyWithPlace()) + ask(volume_.path("data"), policyWithPlace());
      },
      "free free ");
}

TEST_F(Sources, areKnownOfMountsThatComeAfterThePolicy) {
  volume_.file("data/lib/file", "x");
  volume_.folder("kept");
  expect(
      [&]() -> std::string {
        RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
        policy.protectSubtree(volume_.path("kept"));
        std::string answers = ask(volume_.path("data/lib/file"), policy) + ask(volume_.path("data"), policy);
        if (!bind(volume_.path("data/lib"), "kept/lib")) return "skip";
        answers += ask(volume_.path("data/lib/file"), policy) + ask(volume_.path("data"), policy);
        ::umount(volume_.path("kept/lib").c_str());
        return answers + ask(volume_.path("data/lib/file"), policy) + ask(volume_.path("data"), policy);
      },
      "free free refused refused free free ");
}

TEST_F(Sources, areKnownOfPlacesThatAreAddedLater) {
  volume_.file("data/lib/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("data/lib"), "kept/lib")) return "skip";
        RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
        const std::string before = ask(volume_.path("data/lib/file"), policy);
        policy.protectSubtree(volume_.path("kept"));
        return before + ask(volume_.path("data/lib/file"), policy);
      },
      "free refused ");
}

TEST_F(Sources, ofMountsBelowABoundFolderAreRefused) {
  volume_.file("other/in/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("other/in"), "data/lib/sub") ||
            !bind(volume_.path("data/lib"), "kept/lib", MS_REC)) {
          return "skip";
        }
        return helpers(volume_.path("other/in/file")) + helpers(volume_.path("other"));
      },
      "refused refused ");
}

TEST_F(Sources, ofAPartOfAnotherFileSystemAreRefused) {
  expect(
      [&]() -> std::string {
        if (!memory("disk")) return "skip";
        volume_.file("disk/a/lib/file", "x");
        volume_.file("disk/a/other", "x");
        if (!bind(volume_.path("disk/a/lib"), "kept/lib")) return "skip";
        return helpers(volume_.path("disk/a/lib/file")) + helpers(volume_.path("disk/a/lib")) +
               helpers(volume_.path("disk/a")) + helpers(volume_.path("disk/a/other"));
      },
      "refused refused refused free ");
}

TEST_F(Sources, ofAnOverlayAreItsLayers) {
  for (const char* name : {"l/one/file", "l/two:x,y/file", "u/up:p,er/file", "w/work/file", "l/file"}) {
    volume_.file(name, "x");
  }
  expect(
      [&]() -> std::string {
        // The work folder must be empty, and lie on the file system of the upper layer.
        std::filesystem::remove(volume_.path("w/work/file"));
        if (!overlay("lowerdir=@l/one:@l/two\\:x\\,y,upperdir=@u/up\\:p\\,er,workdir=@w/work", "kept/in")) {
          return "skip";
        }
        std::string answers;
        for (const char* name : {"l/one", "l/one/file", "l/two:x,y/file", "u/up:p,er/file", "u/up:p,er",
                                 "w/work", "l", "u", "w", "l/file"}) {
          answers += helpers(volume_.path(name));
        }
        return answers + roots(volume_.path("l/one/file"));
      },
      "refused refused refused refused refused refused refused refused refused free refused ");
}

TEST_F(Sources, ofAnOverlayAboveARefusedPlaceAreRefusedWhole) {
  volume_.file("low/kept/file", "x");
  volume_.file("low/other", "x");
  volume_.link("kept", "above/kept");
  expect(
      [&]() -> std::string {
        if (!overlay("lowerdir=@low:@none", "above") && !overlay("lowerdir=@low:@above", "above"))
          return "skip";
        return helpers(volume_.path("low/kept/file")) + helpers(volume_.path("low/other"));
      },
      "refused refused ");
}

TEST_F(Sources, ofAnOverlayElsewhereMayGo) {
  volume_.file("low/file", "x");
  volume_.folder("empty");
  expect(
      [&]() -> std::string {
        if (!overlay("lowerdir=@low:@empty", "elsewhere")) return "skip";
        return helpers(volume_.path("low/file")) + helpers(volume_.path("low"));
      },
      "free free ");
}

TEST_F(Sources, ofALayerThatIsAMountAreRefused) {
  volume_.file("z/l/file", "x");
  volume_.folder("empty");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("z/l"), "data/l") || !overlay("lowerdir=@data/l:@empty", "kept/in"))
          return "skip";
        return helpers(volume_.path("z/l/file")) + helpers(volume_.path("z"));
      },
      "refused refused ");
}

/// An overlay as this process's "/", as in a container: the options name paths of the system outside.
bool enterOverlayOf(const std::string& point) {
  const auto mounted = [](const char* at, const char* type, const char* options) {
    std::filesystem::create_directories(at);
    return ::mount(type, at, type, 0, options) == 0;
  };
  if (::mount("root", point.c_str(), "tmpfs", 0, "mode=755") != 0 || ::chroot(point.c_str()) != 0 ||
      ::chdir("/") != 0 || !mounted("/rw", "tmpfs", "mode=755")) {
    return false;
  }
  for (const char* folder : {"/rw/u/opt", "/rw/w", "/merged", "/etc", "/usr/lib", "/opt/in", "/proc"}) {
    std::filesystem::create_directories(folder);
  }
  std::ofstream("/etc/passwd") << "root:x:0:0::/root:/bin/sh\nnobody:x:65534:1::/home/nobody:\n";
  std::ofstream("/opt/in/file") << 'x';
  if (!mounted("/merged", "overlay", "lowerdir=/,upperdir=/rw/u,workdir=/rw/w")) return false;
  return ::chroot("/merged") == 0 && ::chdir("/") == 0 && mounted("/proc", "proc", nullptr);
}

TEST_F(Sources, ofATopOverlayThatNamesItselfAreIgnored) {
  expect(
      [&]() -> std::string {
        if (!enterOverlayOf(volume_.path())) return "skip";
        const RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
        return ask("/opt/in/file", policy) + ask("/usr/lib", policy);
      },
      "free refused ");
}

TEST_F(Sources, thatAreTheTopLeaveItsFoldersRemovable) {
  volume_.file("other", "x");
  expect(
      [&]() -> std::string {
        if (!bind("/", "kept/top")) return "skip";
        return helpers(volume_.path("other")) + helpers("/usr/lib") + helpers(volume_.path("kept/top/tmp"));
      },
      "free refused refused ");
}

TEST_F(Sources, areNeverFreeForLackOfDescriptors) {
  volume_.file("data/x/lib/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("data/x/lib"), "kept/lib")) return "skip";
        std::string answers;
        for (const bool isHelper : {true, false}) {
          bool wasRefused = false;
          for (rlim_t more = 0; !wasRefused; ++more) {
            RemovalPolicy policy =
                isHelper ? RemovalPolicy::forHelper(test::kKnownUser) : RemovalPolicy::forUser();
            policy.protectSubtree(volume_.path("kept"));
            if (policy.error() != 0) return "no policy";
            const FileDescriptor next(::open("/", O_PATH | O_CLOEXEC));
            const rlimit limit{static_cast<rlim_t>(next.get()) + more, 4096};
            if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "no limit";
            const RemovalTarget target = RemovalTarget::find(volume_.path("data/x/lib/file"), policy);
            const rlimit enough{4096, 4096};
            ::setrlimit(RLIMIT_NOFILE, &enough);
            if (target.error() == 0) answers += "free with " + std::to_string(more) + " ";
            wasRefused = target.isRefused() && more > 10;
          }
        }
        return answers;
      },
      "");
}

TEST_F(Sources, areNotAskedForWhereAServerMayNotAnswer) {
  volume_.file("other", "x");
  const std::string silent = volume_.folder("silent");
  expect(
      [&]() -> std::string {
        const FileDescriptor server = test::mountSilentFileSystem(silent);
        if (!server.isOpen() || !bind(silent, "kept/silent")) return "skip";
        return roots(volume_.path("other"));
      },
      "free ");
}

}  // namespace
}  // namespace sorrel
