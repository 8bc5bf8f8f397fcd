#include "SorrelFramework/Removal/RemovalPolicy.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Removal/LookupError.hpp"
#include "SorrelFramework/Removal/MountOrigins.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kLongestPath = std::size_t{1} << 20U;

constexpr const char* kTop = "/";
constexpr const char* kSelfAndAncestors[] = {kTop,       "/home",      "/root",      "/var",     "/opt",
                                             "/srv",     "/mnt",       "/media",     "/tmp",     "/var/tmp",
                                             "/var/log", "/var/spool", "/var/cache", "/var/mail"};
constexpr const char* kSubtrees[] = {"/usr",    "/etc",     "/boot",          "/bin",  "/lib", "/lib32",
                                     "/lib64",  "/libx32",  "/sbin",          "/proc", "/sys", "/dev",
                                     "/run",    "/var/lib", "/efi",           "/nix",  "/gnu", "/sysroot",
                                     "/ostree", "/snap",    "/var/spool/cron"};
/// Not for a user who is root: that user cleans in this home.
constexpr const char* kSubtreeForHelper = "/root";
// On image-based systems, /var and /home are folders of /sysroot.
constexpr const char* kExceptions[] = {"/run/media", "/usr/local", "/var", "/home"};
constexpr const char* kTrash = "/.local/share/Trash";
constexpr const char* kOwnProgram = "/proc/self/exe";

enum Listing : unsigned { kPlace = 1, kSubtree = 2, kException = 4 };

bool trustsAnyone(std::uint32_t /*owner*/) { return true; }

/// Errors of a failing user database, which leave open whether the user exists; a missing service gives other
/// errors.
bool isDoubt(int error) {
  return error == EIO || error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR;
}

/// Serialised: getpwent() has one position per process, so two readers would each get a part of the file.
/// Sets `error` if the file can't be read to its end.
std::vector<std::string> listedHomes(int& error) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::vector<std::string> homes;
  ::setpwent();
  for (;;) {
    errno = 0;
    const passwd* const user = ::getpwent();
    if (user == nullptr) break;
    homes.emplace_back(user->pw_dir);
  }
  if (isDoubt(errno)) error = errno;
  ::endpwent();
  return homes;
}

/// A separate query: a directory service may know a user without listing that user. Nothing if no service
/// knows the user.
std::optional<std::string> homeOf(std::uint32_t uid, int& error) {
  std::vector<char> buffer(std::size_t{1} << 16U);
  passwd entry{};
  passwd* found = nullptr;
  const int failure = ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
  if (isDoubt(failure)) error = failure;
  if (failure != 0 || found == nullptr) return std::nullopt;
  return found->pw_dir;
}

}  // namespace

struct RemovalPolicy::Lists {
  Lists(bool isStrict, const PathWalk::MountTrust& mounts) : isStrict_(isStrict), origins_(mounts) {}

  /// Listings by item; ancestors of a listed item get kPlace.
  std::unordered_map<ItemNumber, unsigned, ItemNumberHash> places;
  std::optional<ItemNumber> top;
  /// The first failure that leaves a path unknown.
  int error = 0;

  void add(const ItemNumber& number, unsigned listing) {
    places[number] |= listing;
    hasSubtree_ = hasSubtree_ || (listing & kSubtree) != 0;
    isOutOfDate_ = true;
  }
  [[nodiscard]] bool has(const ItemNumber& number) {
    if (places.contains(number)) return true;
    if (!isOutOfDate_ && !hasAliases_) return false;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (isOutOfDate_) update();
    return isOutOfDate_ || of(number) != 0;
  }
  void addPath(const std::string& path, unsigned listing, const PathWalk::MountTrust& mounts);
  void addFoldersAbove(int item);
  void fail(int failure) {
    if (error == 0 && !tellsOfNoPlace(failure)) error = failure;
  }
  bool isInSubtree(const std::vector<ItemIdentity>& chain);

 private:
  // Called with the lock held:
  void update();
  bool listAliases();
  bool addAlias(const MountOrigins::Alias& alias);
  bool mark(const ItemNumber& number, unsigned listing);
  [[nodiscard]] unsigned of(const ItemNumber& number) const;
  bool decide(const std::vector<ItemIdentity>& chain);
  bool isShownFromSubtree(const ItemIdentity& shown);
  bool findOutOrigin(const ItemIdentity& shown);

  bool isStrict_;
  bool hasSubtree_ = false;
  std::mutex mutex_;  // guards the members below
  MountOrigins origins_;
  /// Listings of folders whose content a mount shows at a listed path, and of their ancestors.
  std::unordered_map<ItemNumber, unsigned, ItemNumberHash> aliases_;
  std::unordered_map<std::uint64_t, bool> shownFromSubtree_;  // by mount ID
  std::set<std::uint64_t> underWay_;
  std::atomic<bool> isOutOfDate_ = true;
  std::atomic<bool> hasAliases_ = false;
};

bool RemovalPolicy::Lists::isInSubtree(const std::vector<ItemIdentity>& chain) {
  if (!hasSubtree_) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  update();
  return isOutOfDate_ || decide(chain);
}

/// Reads the mount table again if it has changed. Stays out of date if that fails.
void RemovalPolicy::Lists::update() {
  const bool isNew = origins_.refresh();
  if (isNew || isOutOfDate_) isOutOfDate_ = !listAliases();
}

/// The content of a protected path may be reachable by another path that bypasses it: through the folder that
/// is bound there, or through the layers of an overlay. An alias found here may itself be the mount point of
/// another mount, so the search is repeated. False if the list may be incomplete.
bool RemovalPolicy::Lists::listAliases() {
  aliases_.clear();
  shownFromSubtree_.clear();
  const auto aliases = origins_.aliases();
  if (!aliases) return false;
  for (bool hasGrown = true; hasGrown;) {
    hasGrown = false;
    for (const MountOrigins::Alias& alias : *aliases) hasGrown = addAlias(alias) || hasGrown;
    if (hasGrown) shownFromSubtree_.clear();
  }
  hasAliases_ = !aliases_.empty();
  return true;
}

/// A layer is protected as a whole, even if the content of the overlay may be removed: the kernel forbids
/// changes of layers.
bool RemovalPolicy::Lists::addAlias(const MountOrigins::Alias& alias) {
  const bool isWhole = hasSubtree_ && decide(alias.point);
  if (!isWhole && of(alias.point.back().number) == 0) return false;
  // "/" may be shown at a protected path too; then its folders keep their own listings.
  bool hasGrown = isWhole && alias.point.back().number != top && mark(alias.point.back().number, kSubtree);
  for (const MountOrigins::Chain& chain : alias.same) {
    for (const ItemIdentity& item : chain) hasGrown = mark(item.number, kPlace) || hasGrown;
  }
  for (const MountOrigins::Chain& chain : alias.layers) {
    for (const ItemIdentity& item : chain) hasGrown = mark(item.number, kPlace) || hasGrown;
    hasGrown = mark(chain.back().number, kSubtree) || hasGrown;
  }
  return hasGrown;
}

/// True if this adds to the item's known listings.
bool RemovalPolicy::Lists::mark(const ItemNumber& number, unsigned listing) {
  if ((of(number) & listing) == listing) return false;
  aliases_[number] |= listing;
  return true;
}

unsigned RemovalPolicy::Lists::of(const ItemNumber& number) const {
  const auto place = places.find(number);
  const auto alias = aliases_.find(number);
  return (place == places.end() ? 0 : place->second) | (alias == aliases_.end() ? 0 : alias->second);
}

/// The deepest listing decides. Above the folder that a mount shows, the hierarchy continues on two sides:
/// above the mount point and at the origin of the mount.
bool RemovalPolicy::Lists::decide(const std::vector<ItemIdentity>& chain) {
  for (std::size_t i = chain.size(); i-- > 0;) {
    const unsigned listing = of(chain[i].number) & (kSubtree | kException);
    if (listing != 0) return (listing & kSubtree) != 0;
    if (i > 0 && chain[i].mount != chain[i - 1].mount && isShownFromSubtree(chain[i])) return true;
  }
  return false;
}

bool RemovalPolicy::Lists::isShownFromSubtree(const ItemIdentity& shown) {
  if (const auto known = shownFromSubtree_.find(shown.mount); known != shownFromSubtree_.end()) {
    return known->second;
  }
  // Two mounts may each lead to the other; the first of them continues with the rest.
  if (!underWay_.insert(shown.mount).second) return false;
  const bool isProtected = findOutOrigin(shown);
  underWay_.erase(shown.mount);
  // A result computed while another mount is being resolved may lack that mount's part.
  if (underWay_.empty()) shownFromSubtree_[shown.mount] = isProtected;
  return isProtected;
}

bool RemovalPolicy::Lists::findOutOrigin(const ItemIdentity& shown) {
  const MountOrigins::Origin origin = origins_.of(shown);
  if (!origin.isKnown && (isStrict_ || !origins_.hasTable())) return true;
  return std::ranges::any_of(origin.chains, [this](const auto& chain) { return decide(chain); });
}

/// Every item that the path passes through is protected too: without a link in its middle, the path would be
/// broken. If the path is out of reach, the reachable part of it is protected: the item may be there.
void RemovalPolicy::Lists::addPath(const std::string& path, unsigned listing,
                                   const PathWalk::MountTrust& mounts) {
  if (!path.starts_with('/')) return;
  const PathWalk walk = PathWalk::into(path, trustsAnyone, mounts);
  const bool isBroken = walk.error() != 0 && !walk.isRefused();
  if (isBroken) fail(walk.error());
  if (isBroken && !tellsOfPlaceOutOfReach(walk.error())) return;
  for (const ItemIdentity& item : walk.passed()) add(item.number, kPlace);
  if (walk.error() != 0) return;  // a removal cannot get there either
  add(walk.chain().back().number, kPlace | listing);
  if (walk.chain().back().isDirectory()) addFoldersAbove(walk.end());
}

/// Follows ".." instead of names: the ancestors may have been reached by another of their names.
void RemovalPolicy::Lists::addFoldersAbove(int item) {
  constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  auto last = identityOf(item);
  if (!last) return fail(errno);
  for (FileDescriptor at(::openat(item, "..", flags));;
       at = FileDescriptor(::openat(at.get(), "..", flags))) {
    const auto identity = at.isOpen() ? identityOf(at.get()) : std::nullopt;
    if (!identity) return fail(errno);
    if (identity->isSameAs(*last)) return;
    add(identity->number, kPlace);
    last = identity;
  }
}

RemovalPolicy::RemovalPolicy(Actor actor, std::uint32_t caller, MountTrust mounts)
    : actor_(actor),
      caller_(caller),
      mounts_(std::move(mounts)),
      lists_(std::make_unique<Lists>(actor == Actor::Helper, mounts_)) {}

RemovalPolicy::~RemovalPolicy() = default;
RemovalPolicy::RemovalPolicy(RemovalPolicy&&) noexcept = default;
RemovalPolicy& RemovalPolicy::operator=(RemovalPolicy&&) noexcept = default;

RemovalPolicy RemovalPolicy::forUser() {
  RemovalPolicy policy(Actor::User, ::geteuid(), {});
  policy.listBuiltIn(::geteuid() == 0);
  return policy;
}

RemovalPolicy RemovalPolicy::forHelper(std::uint32_t caller, MountTrust mounts) {
  RemovalPolicy policy(Actor::Helper, caller, std::move(mounts));
  policy.listBuiltIn(true);
  std::string program(4096, '\0');
  const ssize_t length = ::readlink(kOwnProgram, program.data(), program.size());
  if (length < 0) policy.lists_->fail(errno);
  if (length > 0) policy.protectSelfAndAncestors(program.substr(0, static_cast<std::size_t>(length)));
  return policy;
}

void RemovalPolicy::listBuiltIn(bool withSubtrees) {
  if (const auto top = identityOf(AT_FDCWD, kTop)) {
    lists_->top = top->number;
  } else {
    lists_->fail(errno);
  }
  for (const char* path : kSelfAndAncestors) protectSelfAndAncestors(path);
  listHomes();
  const FileDescriptor current(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (const auto identity = current.isOpen() ? identityOf(current.get()) : std::nullopt) {
    lists_->add(identity->number, kPlace);
    lists_->addFoldersAbove(current.get());
  } else {
    lists_->fail(errno);
  }
  if (!withSubtrees) return;
  for (const char* path : kSubtrees) protectSubtree(path);
  if (actor_ == Actor::Helper) protectSubtree(kSubtreeForHelper);
  for (const char* path : kExceptions) allowSubtree(path);
}

void RemovalPolicy::listHomes() {
  int error = 0;
  std::vector<std::string> homes = listedHomes(error);
  if (const auto own = homeOf(caller_, error)) {
    homes.push_back(*own);
  } else if (actor_ == Actor::Helper && error == 0) {
    // The caller must have a home, or the system would not have authorised the call, but no service knows it.
    error = ESRCH;
  }
  if (error != 0) lists_->fail(error);
  if (const char* home = std::getenv("HOME")) homes.emplace_back(home);
  for (const std::string& home : homes) {
    protectSelfAndAncestors(home);
    protectSelfAndAncestors(home + kTrash);
  }
  if (const char* data = std::getenv("XDG_DATA_HOME")) protectSelfAndAncestors(data + std::string("/Trash"));
}

void RemovalPolicy::protectSelfAndAncestors(const std::string& path) {
  lists_->addPath(path, kPlace, mounts_);
}
void RemovalPolicy::protectSubtree(const std::string& path) { lists_->addPath(path, kSubtree, mounts_); }
void RemovalPolicy::allowSubtree(const std::string& path) { lists_->addPath(path, kException, mounts_); }

bool RemovalPolicy::isNormalPath(std::string_view path) {
  if (path.size() < 2 || path.size() > kLongestPath || path.front() != '/') return false;
  if (path.find('\0') != std::string_view::npos) return false;
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    if (name.empty() || name == "." || name == "..") return false;
    path.remove_prefix(name.size());
  }
  return true;
}

void RemovalPolicy::addUnknown(int error) { lists_->fail(error); }
int RemovalPolicy::error() const noexcept { return lists_->error; }

bool RemovalPolicy::trustsLinkOf(std::uint32_t owner) const noexcept {
  return owner == 0 || (actor_ == Actor::User && owner == caller_);
}

bool RemovalPolicy::trustsItemOf(std::uint32_t owner) const noexcept {
  return actor_ == Actor::User || owner == 0 || owner == caller_;
}

bool RemovalPolicy::trustsWay(const std::vector<ItemIdentity>& passed) const {
  return std::ranges::all_of(passed, [this](const ItemIdentity& item) { return trustsItemOf(item.uid); });
}

bool RemovalPolicy::protectsEntriesOf(const ItemNumber& folder) const { return lists_->top == folder; }
bool RemovalPolicy::protects(const ItemNumber& item) const { return lists_->has(item); }

bool RemovalPolicy::protectsWhatLiesIn(const std::vector<ItemIdentity>& chain) const {
  return lists_->isInSubtree(chain);
}

}  // namespace sorrel
