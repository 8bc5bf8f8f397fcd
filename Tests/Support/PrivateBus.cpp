#include "Tests/Support/PrivateBus.hpp"

#include <gtest/gtest.h>

#include <future>
#include <string_view>

namespace sorrel::test {
namespace {

std::string configuration(const std::string& folder) {
  return "<!DOCTYPE busconfig PUBLIC '-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN'"
         " 'http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd'>\n"
         "<busconfig><type>session</type><listen>unix:path=" +
         folder + "/bus</listen><servicedir>" + folder +
         "/services</servicedir><policy context='default'><allow send_destination='*' eavesdrop='true'/>"
         "<allow eavesdrop='true'/><allow own='*'/><allow user='*'/></policy></busconfig>\n";
}

}  // namespace

PrivateBus::PrivateBus() {
  folder_.folder("services");
  const std::string file = folder_.file("bus.conf", configuration(folder_.path()));
  daemon_ = std::make_unique<ChildProcess>(
      "/usr/bin/dbus-daemon",
      std::vector<std::string>{"--nofork", "--nopidfile", "--print-address=1", "--config-file=" + file});
  std::promise<std::string> address;
  reader_ = std::thread([this, &address] {
    // Printed once the bus listens. After that `address` is out of scope.
    bool isFirst = true;
    daemon_->run([&](std::string_view line) {
      if (std::exchange(isFirst, false)) address.set_value(std::string(line.substr(0, line.find('\n'))));
      return true;
    });
    if (isFirst) address.set_value("");
  });
  address_ = address.get_future().get();
  EXPECT_NE(address_, "") << "no dbus-daemon";
}

PrivateBus::~PrivateBus() { stop(); }

void PrivateBus::addService(const std::string& name, const std::string& commands) const {
  const std::string program = folder_.script("services/" + name + ".sh", commands);
  folder_.file("services/" + name + ".service",
               "[D-BUS Service]\nName=" + name + "\nExec=/bin/sh " + program + "\n");
}

void PrivateBus::stop() {
  if (!reader_.joinable()) return;
  daemon_->interrupt();
  reader_.join();
}

}  // namespace sorrel::test
