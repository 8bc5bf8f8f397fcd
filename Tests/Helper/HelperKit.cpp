#include "Tests/Helper/HelperKit.hpp"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "Tests/Helper/RawCaller.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {
namespace {

namespace fs = std::filesystem;

const std::string kServices = "/usr/share/dbus-1/system-services/";

/// Folders that the tests write to. They are created in the layer itself, because root of a user namespace
/// may not write to those of the machine.
const std::vector<std::string> kWritten = {"/usr/libexec",
                                           "/usr/lib/systemd/system",
                                           "/usr/local/lib",
                                           "/usr/share/fonts",
                                           "/usr/share/dbus-1/system-services",
                                           "/usr/share/dbus-1/system.d",
                                           "/usr/share/polkit-1/actions",
                                           "/etc/polkit-1"};
const std::vector<std::string> kRules = {"/etc/polkit-1/rules.d", "/usr/share/polkit-1/rules.d"};

bool overlay(const std::string& layer, const std::string& place) {
  fs::create_directories(layer + "/work");
  fs::create_directories(layer + "/upper");
  for (const std::string& folder : kWritten) {
    if (folder.starts_with(place + '/'))
      fs::create_directories(layer + "/upper" + folder.substr(place.size()));
  }
  const std::string options =
      "lowerdir=" + place + ",upperdir=" + layer + "/upper,workdir=" + layer + "/work";
  return ::mount("overlay", place.c_str(), "overlay", 0, options.c_str()) == 0;
}

/// Replaces a file that only the machine's root may write by a copy in the layer.
void ownCopy(const std::string& file) {
  const std::string content = contentOf(file);
  fs::remove(file);
  std::ofstream(file) << content;
}

std::string leaveMachine() {
  if (!canBeOtherUsers()) return "needs root, which the helper runs as, and other users";
  for (const char* program : {"/usr/bin/dbus-daemon", "/usr/lib/polkit-1/polkitd", "/usr/bin/strace"}) {
    if (::access(program, X_OK) != 0) return std::string("needs ") + program;
  }
  if (::unshare(CLONE_NEWNS) != 0) return "needs the right to have a mount table of its own";
  // The following must never happen in the mount table that other processes see.
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return "needs a private mount table";
  ::umask(022);  // other users must be able to read the tests' files
  const std::string layers = "/mnt";
  if (::mount("none", layers.c_str(), "tmpfs", 0, "mode=0755") != 0) return "needs the right to mount";
  for (const char* place : {"/usr", "/etc"}) {
    if (!overlay(layers + place, place)) return "needs overlay mounts";
  }
  // A copy: the folders above the build may belong to users that are unknown in this namespace.
  fs::create_directory(kBundle);
  fs::copy_file(SORREL_HELPER_BUNDLE "/install-helper", kBundle + "/install-helper");
  fs::copy(SORREL_HELPER_BUNDLE "/helper", kBundle + "/helper");
  // Empty, because no rule of the machine may apply.
  for (const std::string& rules : kRules) {
    fs::create_directories(rules);
    if (::mount("none", rules.c_str(), "tmpfs", 0, "mode=0755") != 0) return "needs the right to mount";
  }
  for (const char* table : {"/etc/passwd", "/etc/group"}) ownCopy(table);
  // The bus accepts only users that the machine knows.
  std::ofstream users("/etc/passwd", std::ios::app);
  std::ofstream groups("/etc/group", std::ios::app);
  for (const std::uint32_t uid : {kAlice, kBob, kCarol}) {
    const std::string number = std::to_string(uid);
    users << "user" << number << ":x:" << number << ":" << number << "::/nonexistent:/bin/sh\n";
    groups << "user" << number << ":x:" << number << ":\n";
  }
  return "";
}

std::string busConfiguration(const std::string& folder, bool isScripted, const std::string& otherRules) {
  const std::string owner = isScripted ? "<policy user='root'><allow own='org.freedesktop.PolicyKit1'/>"
                                         "<allow send_destination='org.freedesktop.PolicyKit1'/></policy>"
                                       : "<include>/usr/share/dbus-1/system.d/org.freedesktop.PolicyKit1.conf"
                                         "</include>";
  // The default policy of the system's own bus.
  return "<!DOCTYPE busconfig PUBLIC '-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN'"
         " 'http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd'>\n"
         "<busconfig><type>system</type><listen>unix:path=" +
         folder +
         "/bus</listen><auth>EXTERNAL</auth><limit name='max_connections_per_user'>512</limit><servicedir>" +
         folder +
         "/services</servicedir><policy context='default'><allow user='*'/><deny own='*'/>"
         "<deny send_type='method_call'/><allow send_type='signal'/>"
         "<allow send_requested_reply='true' send_type='method_return'/>"
         "<allow send_requested_reply='true' send_type='error'/><allow receive_type='method_call'/>"
         "<allow receive_type='method_return'/><allow receive_type='error'/><allow receive_type='signal'/>"
         "<allow send_destination='org.freedesktop.DBus' send_interface='org.freedesktop.DBus'/></policy>" +
         owner + "<include>/usr/share/dbus-1/system.d/" + kService +
         ".conf</include><policy context='default'>" + otherRules + "</policy></busconfig>\n";
}

/// Starts the bus; its first line of output, the address, can be read from the descriptor.
pid_t startDaemon(const std::string& folder, int& output) {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const std::string configuration = "--config-file=" + folder + "/bus.conf";
  const std::string address = "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + folder + "/bus";
  const std::string errors = folder + "/log";
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(ends[1], STDOUT_FILENO);
    ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644), STDERR_FILENO);
    ::execle("/usr/bin/dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
             configuration.c_str(), nullptr,
             std::array<const char*, 3>{"PATH=/usr/bin:/bin", address.c_str(), nullptr}.data());
    ::_exit(1);
  }
  ::close(ends[1]);
  output = ends[0];
  return child;
}

std::string readLine(int descriptor) {
  std::string line;
  for (char byte = 0; ::read(descriptor, &byte, 1) == 1 && byte != '\n';) line.push_back(byte);
  ::close(descriptor);
  return line;
}

std::string packed(const Answer& answer) {
  if (!answer.isThere) return answer.refusal.empty() ? "" : "-" + answer.refusal;
  const HelperMessage message{HelperMessage::Kind::Reply, answer.dictionary, {}};
  return (answer.flag ? "1" : "0") + std::to_string(answer.code) + "\n" +
         encodeHelperMessage(message).value();
}

Answer unpacked(const std::string& text) {
  if (text.starts_with('-')) return {false, false, -1, {}, text.substr(1)};
  const std::size_t end = text.find('\n');
  if (end == std::string::npos) return {};
  const auto message =
      decodeHelperMessage(std::string_view(text).substr(end + 1), HelperMessage::Kind::Reply);
  if (!message.has_value()) return {};
  return {true, text[0] == '1', std::atoi(text.c_str() + 1), *message->dictionary, ""};
}

bool becomeUser(std::uint32_t uid) {
  return ::setgroups(0, nullptr) == 0 && ::setresgid(uid, uid, uid) == 0 && ::setresuid(uid, uid, uid) == 0;
}

}  // namespace

const std::string& whyNoMachine() {
  static const std::string why = leaveMachine();
  return why;
}

std::string inUser(std::uint32_t uid, const std::function<std::string()>& work) {
  return inChild([&] { return becomeUser(uid) ? work() : std::string("still privileged"); });
}

std::string codedEvent(const HelperDictionary& event) {
  HelperMessage message{HelperMessage::Kind::Event, event, {}};
  for (const auto& [key, value] : event) message.views.push_back(viewOf(key));
  return encodeHelperMessage(message).value_or("");
}

std::future<Answer> send(HelperProtocol& helper, std::int32_t id, const HelperDictionary& event) {
  const auto promise = std::make_shared<std::promise<Answer>>();
  helper.handleEvent(
      id, event, [promise](bool flag, std::int32_t code, const std::optional<HelperDictionary>& dictionary) {
        promise->set_value({true, flag, code, dictionary.value_or(HelperDictionary()), ""});
      });
  return promise->get_future();
}

Answer take(std::future<Answer> reply) {
  return reply.wait_for(5 * kPatience) == std::future_status::ready ? reply.get() : Answer();
}

// --- HelperMachine ---

HelperMachine::HelperMachine(const Setup& setup) {
  ::chmod(folder_.path().c_str(), 0755);
  writeFiles(setup);
  startBus(setup);
  if (setup.polkit == Polkit::Scripted) polkit_ = std::make_unique<ScriptedPolkit>(address_, setup.mode);
}

void HelperMachine::writeFiles(const Setup& setup) const {
  ChildProcess installer(kBundle + "/install-helper", {kService});
  EXPECT_EQ(installer.run([](std::string_view) { return true; }).exitStatus, 0);
  const std::string policyFile = "/usr/share/dbus-1/system.d/" + kService + ".conf";
  std::string policy = contentOf(policyFile);
  for (const std::string& rule : setup.withoutRules) {
    const std::size_t place = policy.find(rule);
    ASSERT_NE(place, std::string::npos) << rule;
    policy.erase(place, rule.size());
  }
  std::ofstream(policyFile) << policy;
  folder_.folder("services");
  const auto offer = [&](const std::string& name) {
    fs::copy_file(kServices + name + ".service", folder_.path("services/" + name + ".service"));
  };
  offer(kService);
  if (!setup.tracer.empty()) {
    std::ofstream(folder_.path("services/" + kService + ".service"))
        << "[D-BUS Service]\nName=" << kService << "\nExec=" << setup.tracer << " /usr/libexec/" << kService
        << "\nUser=root\n";
  }
  if (setup.polkit == Polkit::Real) offer(kPolkitName);
  std::ofstream("/etc/polkit-1/rules.d/00-test.rules")
      << "polkit.addRule(function(action, subject) {" << setup.rules << "});\n";
  fs::remove_all("/etc/" + kService);
  if (setup.configuration.empty()) return;
  fs::create_directory("/etc/" + kService);
  const std::string file = "/etc/" + kService + "/helper.conf";
  std::ofstream(file) << setup.configuration;
  ::chmod(file.c_str(), 0644);
}

void HelperMachine::startBus(const Setup& setup) {
  const bool isScripted = setup.polkit == Polkit::Scripted;
  folder_.file("bus.conf", busConfiguration(folder_.path(), isScripted, setup.otherRules));
  int output = -1;
  daemon_ = startDaemon(folder_.path(), output);
  const std::string line = readLine(output);
  address_ = line.substr(0, line.find(','));
  EXPECT_NE(address_, "") << log();
  ::chmod(folder_.path("bus").c_str(), 0777);
}

HelperMachine::~HelperMachine() {
  polkit_.reset();
  const pid_t process = helper();
  const FileDescriptor last(process < 0 ? -1 : static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
  ::kill(daemon_, SIGTERM);
  ::waitpid(daemon_, nullptr, 0);
  // Without a bus it ends, and only its log contains the reports of a sanitizer.
  pollfd end{last.get(), POLLIN, 0};
  if (last.isOpen()) ::poll(&end, 1, static_cast<int>(kPatience.count()));
  for (const char* finding : {"Sanitizer", "runtime error: "}) {
    EXPECT_EQ(log().find(finding), std::string::npos) << log();
  }
}

std::shared_ptr<HelperConnection> HelperMachine::connect() const {
  auto connection = DBusHelperConnection::make(kService, {address_, 0});
  EXPECT_NE(connection, nullptr);
  return connection;
}

Answer HelperMachine::ask(std::int32_t id, const HelperDictionary& event) const {
  const auto connection = connect();
  const auto helper = connection->remoteObjectProxyWithErrorHandler([] {});
  EXPECT_NE(helper, nullptr) << log();
  return helper == nullptr ? Answer() : take(send(*helper, id, event));
}

Answer HelperMachine::askAs(std::uint32_t uid, std::int32_t id, const HelperDictionary& event) const {
  return unpacked(inUser(uid, [&] { return packed(askRaw(id, codedEvent(event))); }));
}

Answer HelperMachine::askRaw(std::int32_t id, const std::string& message) const {
  RawCaller caller(address_);
  const RawCaller::Ticket ticket = caller.fill(id, message);
  return ticket.refusal.empty() ? caller.run(ticket.number) : Answer{false, false, -1, {}, ticket.refusal};
}

std::string HelperMachine::log() const { return contentOf(folder_.path("log")); }

bool HelperMachine::waitForLog(const std::string& text) const {
  return runMainLoopUntil([&] { return log().find(text) != std::string::npos; });
}

pid_t HelperMachine::helper() const {
  try {
    const auto connection = sdbus::createSessionBusConnectionWithAddress(address_);
    const auto bus = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    std::uint32_t process = 0;
    bus->callMethod("GetConnectionUnixProcessID")
        .onInterface("org.freedesktop.DBus")
        .withArguments(kService)
        .storeResultsTo(process);
    return static_cast<pid_t>(process);
  } catch (const sdbus::Error&) {
    return -1;
  }
}

void HelperMachine::kill(int signal) const {
  const pid_t process = helper();
  ASSERT_GT(process, 0);
  ::kill(process, signal);
}

bool HelperMachine::waitUntilHelperIsGone() const {
  return runMainLoopUntil([this] { return helper() < 0; });
}

}  // namespace sorrel::test
