// Descriptors that must not reach the root program: closing them blocks on the process that sent them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <netinet/in.h>
#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Helper/RawCaller.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::helper {
namespace {

using namespace test;

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kDenied = "org.freedesktop.DBus.Error.AccessDenied";

/// A file on a FUSE file system whose server answers every process except one, which blocks when it closes
/// the file.
class StickyFile {
 public:
  StickyFile(const std::string& file, pid_t victim)
      : file_(file), victim_(victim), server_(::open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
    const std::string options =
        "fd=" + std::to_string(server_.get()) + ",rootmode=100666,user_id=0,group_id=0,allow_other";
    isMounted_ = ::mount("sticky", file.c_str(), "fuse.sticky", 0, options.c_str()) == 0;
    if (isMounted_) thread_ = std::thread([this] { serve(); });
  }
  ~StickyFile() {
    if (!isMounted_) return;
    ::umount2(file_.c_str(), MNT_FORCE);
    ::umount2(file_.c_str(), MNT_DETACH);
    thread_.join();
  }
  StickyFile(const StickyFile&) = delete;
  StickyFile& operator=(const StickyFile&) = delete;

  [[nodiscard]] bool isMounted() const { return isMounted_; }
  /// True if the victim has closed it, and is blocked.
  [[nodiscard]] bool hasVictim() const { return hasVictim_; }

 private:
  void answer(const fuse_in_header& request, int error, const void* body = nullptr, std::size_t size = 0) {
    std::array<char, 256> reply{};
    const fuse_out_header head{static_cast<std::uint32_t>(sizeof head + size), -error, request.unique};
    std::memcpy(reply.data(), &head, sizeof head);
    if (size > 0) std::memcpy(reply.data() + sizeof head, body, size);
    [[maybe_unused]] const ssize_t written = ::write(server_.get(), reply.data(), head.len);
  }
  void handle(const fuse_in_header& request) {
    if (request.opcode == FUSE_INIT) {
      fuse_init_out init{};
      init.major = FUSE_KERNEL_VERSION;
      init.minor = 31;
      init.max_write = 4096;
      return answer(request, 0, &init, sizeof init);
    }
    if (request.opcode == FUSE_GETATTR) {
      fuse_attr_out out{};
      out.attr.ino = 1;
      out.attr.mode = S_IFREG | 0666;
      out.attr.nlink = 1;
      return answer(request, 0, &out, sizeof out);
    }
    if (request.opcode == FUSE_OPEN) {
      const fuse_open_out out{};
      return answer(request, 0, &out, sizeof out);
    }
    if (request.opcode == FUSE_FLUSH && static_cast<pid_t>(request.pid) == victim_) {
      hasVictim_ = true;
      return;
    }
    if (request.opcode != FUSE_FORGET) answer(request, request.opcode == FUSE_FLUSH ? 0 : ENOSYS);
  }
  void serve() {
    std::vector<char> request(std::size_t{64} << 10);
    for (;;) {
      const ssize_t size = ::read(server_.get(), request.data(), request.size());
      if (size < 0 && errno == EINTR) continue;
      if (size < static_cast<ssize_t>(sizeof(fuse_in_header))) return;  // unmounted
      fuse_in_header head{};
      std::memcpy(&head, request.data(), sizeof head);
      handle(head);
    }
  }

  std::string file_;
  pid_t victim_;
  FileDescriptor server_;
  bool isMounted_ = false;
  std::atomic<bool> hasVictim_ = false;
  std::thread thread_;
};

/// A connected TCP socket with data that its peer never reads: the last close blocks for an hour.
class LingeringSocket {
 public:
  LingeringSocket() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(listener_.get(), plain, size), 0);
    EXPECT_EQ(::listen(listener_.get(), 1), 0);
    EXPECT_EQ(::getsockname(listener_.get(), plain, &size), 0);
    socket_ = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(socket_.get(), plain, size), 0);
    EXPECT_EQ(::fcntl(socket_.get(), F_SETFL, O_NONBLOCK), 0);
    const std::vector<char> much(std::size_t{1} << 20);
    while (::write(socket_.get(), much.data(), much.size()) > 0) {
    }
    setLinger(true);
    EXPECT_EQ(::fcntl(socket_.get(), F_SETFL, 0), 0);
  }
  ~LingeringSocket() { setLinger(false); }
  LingeringSocket(const LingeringSocket&) = delete;
  LingeringSocket& operator=(const LingeringSocket&) = delete;

  [[nodiscard]] int descriptor() const { return socket_.get(); }

 private:
  void setLinger(bool isOn) const {
    const linger wait{isOn ? 1 : 0, 3600};
    EXPECT_EQ(::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &wait, sizeof wait), 0);
  }
  FileDescriptor listener_;
  FileDescriptor socket_;
};

class Descriptors : public HelperServiceKit {
 protected:
  /// Sends the descriptor with a call of each method, in each form; returns the distinct errors.
  std::set<std::string> offer(int descriptor) {
    RawCaller caller(machine->address());
    std::set<std::string> errors;
    for (const char* method :
         {HelperWireNames::begin, HelperWireNames::run, HelperWireNames::getHelperVersion, "HandleEvent"}) {
      errors.insert(caller.call(
          method, [descriptor](sdbus::MethodCall& call) { call << kDelete << sdbus::UnixFd(descriptor); }));
    }
    return errors;
  }
  static std::string idOfBus(sdbus::IConnection& connection) {
    std::string id;
    sdbus::createProxy(connection, kBus, "/org/freedesktop/DBus")
        ->callMethod("GetId")
        .onInterface(kBus)
        .storeResultsTo(id);
    return id;
  }
  /// Sends it in a signal, which has no reply; without a descriptor if it is negative. Returns when the bus
  /// has the signal.
  static std::string sendSignal(const std::string& address, const std::string& destination, int descriptor) {
    const auto connection = sdbus::createSessionBusConnectionWithAddress(address);
    const auto object = sdbus::createObject(*connection, "/a");
    sdbus::Signal signal = object->createSignal("org.example.Signals", descriptor < 0 ? "Plain" : "Loaded");
    signal.setDestination(destination);
    if (descriptor >= 0) signal << sdbus::UnixFd(descriptor);
    object->emitSignal(signal);
    return idOfBus(*connection);
  }
  void sendSignal(int descriptor) { sendSignal(machine->address(), kService, descriptor); }
  /// The bus's answer to a call by alice with a descriptor to this destination.
  [[nodiscard]] std::string callAsAlice(const std::string& destination, const char* interface,
                                        const char* method, int descriptor) const {
    return inUser(kAlice, [&]() -> std::string {
      const auto connection = sdbus::createSessionBusConnectionWithAddress(machine->address());
      const auto proxy = sdbus::createProxy(*connection, destination, "/a");
      sdbus::MethodCall call = proxy->createMethodCall(interface, method);
      call << sdbus::UnixFd(descriptor);
      std::string error = "delivered";
      proxy->callMethod(
          call, [&](sdbus::MethodReply&, const sdbus::Error* failure) { error = failure->getName(); },
          UINT64_MAX);
      idOfBus(*connection);  // comes after the refusal, if there is one
      while (connection->processPendingRequest()) {
      }
      return error;
    });
  }
  /// The helper still accepts calls.
  void expectAnswer() { EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere) << machine->log(); }
};

TEST_F(Descriptors, aFileWhoseClosingNeverEndsReachesNobody) {
  start({});
  expectAnswer();
  StickyFile sticky(machine->folder().file("sticky"), machine->helper());
  if (!sticky.isMounted()) GTEST_SKIP() << "needs FUSE";
  const FileDescriptor file(::open(machine->folder().path("sticky").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(file.isOpen());
  EXPECT_EQ(offer(file.get()), std::set<std::string>{kDenied});
  sendSignal(file.get());
  expectAnswer();
  EXPECT_FALSE(sticky.hasVictim());
}

TEST_F(Descriptors, aSocketWhoseClosingNeverEndsReachesNobody) {
  start({});
  expectAnswer();
  const LingeringSocket socket;
  EXPECT_EQ(offer(socket.descriptor()), std::set<std::string>{kDenied});
  sendSignal(socket.descriptor());
  expectAnswer();
}

TEST_F(Descriptors, noSignalBringsThemToAConnectionOfRootWithoutAName) {
  start({});
  const auto root = sdbus::createSessionBusConnectionWithAddress(machine->address());
  std::vector<std::string> arrived;
  const sdbus::Slot slot =
      root->addMatch("type='signal',interface='org.example.Signals'",
                     [&](sdbus::Message& signal) { arrived.push_back(signal.getMemberName()); });
  const FileDescriptor file(::memfd_create("any", MFD_CLOEXEC));
  const std::string name = root->getUniqueName();
  for (const int descriptor : {file.get(), -1}) {
    EXPECT_NE(inUser(kAlice, [&] { return sendSignal(machine->address(), name, descriptor); }), "");
  }
  idOfBus(*root);
  while (root->processPendingRequest()) {
  }
  EXPECT_EQ(arrived, std::vector<std::string>{"Plain"});
}

TEST_F(Descriptors, noCallOfAStandardInterfaceBringsThemToRootWhateverElseIsAllowed) {
  HelperMachine::Setup setup;
  setup.otherRules =
      "<allow send_interface='org.freedesktop.DBus.Introspectable'/>"
      "<allow send_interface='org.freedesktop.DBus.Properties'/>"
      "<allow send_interface='org.freedesktop.DBus.Peer'/>";
  start(setup);
  expectAnswer();
  const auto root = sdbus::createSessionBusConnectionWithAddress(machine->address());
  const FileDescriptor file(::memfd_create("any", MFD_CLOEXEC));
  for (const std::string& destination : {kService, root->getUniqueName()}) {
    for (const auto& [interface, method] : {std::pair("org.freedesktop.DBus.Introspectable", "Introspect"),
                                            std::pair("org.freedesktop.DBus.Properties", "GetAll"),
                                            std::pair("org.freedesktop.DBus.Peer", "Ping")}) {
      EXPECT_EQ(callAsAlice(destination, interface, method, file.get()), kDenied) << destination << interface;
    }
  }
}

TEST_F(Descriptors, noCallThatAnotherPackageAllowsBringsThemToTheHelper) {
  HelperMachine::Setup setup;
  setup.otherRules = "<allow send_interface='" + HelperWireNames(kService).interface + "'/>";
  start(setup);
  expectAnswer();
  const FileDescriptor file(::memfd_create("any", MFD_CLOEXEC));
  EXPECT_EQ(offer(file.get()), std::set<std::string>{kDenied});
}

struct WeakPolicy {
  const char* name;
  std::vector<std::string> withoutRules;
  std::string otherRules;
};

class DescriptorsOnWeakBus : public Descriptors, public testing::WithParamInterface<WeakPolicy> {};

TEST_P(DescriptorsOnWeakBus, theHelperServesNoBusThatLetsThemThrough) {
  HelperMachine::Setup setup;
  setup.withoutRules = GetParam().withoutRules;
  setup.otherRules = GetParam().otherRules;
  start(setup);
  RawCaller caller(machine->address());
  EXPECT_NE(caller.begin({kDelete, HelperWireNames::noOperation, 1, 100}).refusal, "");
  EXPECT_TRUE(machine->waitForLog("lets descriptors through: no call is taken")) << machine->log();
}

const std::string kForName = "<deny send_destination=\"" + kService + "\" min_fds=\"1\"/>";
std::string ruleFor(const std::string& interface) {
  return "<deny receive_interface=\"org.freedesktop.DBus." + interface + "\" min_fds=\"1\"/>";
}
std::string allowanceOf(const std::string& interface) {
  return "<allow send_interface='org.freedesktop.DBus." + interface + "'/>";
}

INSTANTIATE_TEST_SUITE_P(
    ByMessage, DescriptorsOnWeakBus,
    testing::Values(WeakPolicy{"callOfTheHelper", {" max_fds=\"0\"", kForName}, ""},
                    WeakPolicy{"signal", {"<deny receive_type=\"signal\" min_fds=\"1\"/>"}, ""},
                    WeakPolicy{"introspection", {ruleFor("Introspectable")}, allowanceOf("Introspectable")},
                    WeakPolicy{"properties", {ruleFor("Properties")}, allowanceOf("Properties")},
                    WeakPolicy{"peer", {ruleFor("Peer")}, allowanceOf("Peer")}),
    [](const testing::TestParamInfo<WeakPolicy>& each) { return std::string(each.param.name); });

TEST_F(Descriptors, sixtyConnectionsFullOfThemEndNoOthersWork) {
  HelperMachine::Setup setup;
  setup.mode = ScriptedPolkit::Mode::Wait;
  setup.tracer = "/usr/bin/prlimit --nofile=32";
  start(setup);
  auto waiting = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  machine->kill(SIGSTOP);
  const FileDescriptor memory(::memfd_create("many", MFD_CLOEXEC));
  std::vector<std::unique_ptr<RawCaller>> callers;
  for (int i = 0; i < 60; ++i) {
    callers.push_back(std::make_unique<RawCaller>(machine->address()));
    callers.back()->send(HelperWireNames::begin, [&](sdbus::MethodCall& call) {
      call << kDelete << HelperWireNames::noOperation << std::uint32_t{1} << std::uint64_t{100};
      for (int count = 0; count < 16; ++count) call << sdbus::UnixFd(memory.get());
    });
    callers.back()->beginUnanswered({kDelete, HelperWireNames::noOperation, 1, 100});
  }
  machine->kill(SIGCONT);
  machine->polkit().answerAll(true);
  const Answer answer = test::take(std::move(waiting));
  EXPECT_TRUE(answer.isThere) << machine->log();
  EXPECT_EQ(answer.dictionary.size(), 1U);
}

}  // namespace
}  // namespace sorrel::helper
