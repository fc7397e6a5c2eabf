// The installed service unit, as the service manager that is to run it reads it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "InstalledPrefix.h"
#include "Strace.h"
#include "SystemBus.h"
#include "TlsPeer.h"
#include "WaitUntil.h"
#include "WithoutRights.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

using TNames = std::set<std::string>;

const std::string UNIT = "lib/systemd/system/ostel-gateway.service";

std::string Contents(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

// The groups of system calls as the service manager knows them.
std::map<std::string, TNames> Groups() {
    std::map<std::string, TNames> groups;
    std::istringstream lines(
        RunProgram({"systemd-analyze", "syscall-filter", "--no-pager"}).output);
    std::string group;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (line[0] == '@') {
            group = word;
        } else if (!word.empty() && word[0] != '#') {
            groups[group].insert(word);
        }
    }
    return groups;
}

TNames Expand(const std::map<std::string, TNames>& groups, const std::string& name) {
    const auto group = groups.find(name);
    if (group == groups.end()) {
        return {name};
    }
    TNames calls;
    for (const std::string& member : group->second) {
        calls.merge(Expand(groups, member));
    }
    return calls;
}

// What the unit's filters leave of all calls.
TNames AllowedCalls(const std::string& unit) {
    const std::map<std::string, TNames> groups = Groups();
    TNames allowed = Expand(groups, "@default");
    std::istringstream lines(unit);
    const std::string key = "SystemCallFilter=";
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, key.size(), key) != 0) {
            continue;
        }
        const bool removes = line[key.size()] == '~';
        std::istringstream words(line.substr(key.size() + (removes ? 1 : 0)));
        for (std::string word; words >> word;) {
            for (const std::string& call : Expand(groups, word)) {
                if (removes) {
                    allowed.erase(call);
                } else {
                    allowed.insert(call);
                }
            }
        }
    }
    return allowed;
}

TNames CallsOf(const std::string& trace) {
    TNames calls;
    static const std::regex call(R"((?:^|\n)\d+ +([a-z0-9_]+)\()");
    for (std::sregex_iterator next(trace.begin(), trace.end(), call), end; next != end; ++next) {
        calls.insert((*next)[1]);
    }
    return calls;
}

TEST(Service, IsUnderstoodByTheServiceManager) {
    const InstalledPrefix prefix;
    const TFinished verify =
        RunProgram({"systemd-analyze", "verify", "--man=no", prefix.File(UNIT)});
    EXPECT_EQ(verify.status, 0);
    // It may have something to say on units of this machine.
    EXPECT_THAT(verify.errors, Not(HasSubstr("ostel-gateway")));
    EXPECT_THAT(Contents(prefix.File(UNIT)),
                HasSubstr("\nExecStart=" + prefix.File("bin/ostel-gateway --state ")));
}

// dbus-daemon looks up the groups of a user, which it cannot do for one that is made for each
// start.
TEST(Service, HasAUserWhoMayBeAnApplication) {
    const InstalledPrefix prefix;
    std::filesystem::create_directories(prefix.File("root/etc"));
    const TFinished sysusers = RunProgram({"systemd-sysusers", "--root=" + prefix.File("root"),
                                           prefix.File("lib/sysusers.d/ostel.conf")});
    EXPECT_EQ(sysusers.status, 0) << sysusers.errors;
    EXPECT_THAT(Contents(prefix.File(UNIT)), HasSubstr("\nUser=ostel-gateway\n"));
    EXPECT_THAT(Contents(prefix.File("root/etc/passwd")), HasSubstr("ostel-gateway:"));
    EXPECT_THAT(Contents(prefix.File("root/etc/group")),
                ContainsRegex("(^|\n)ostel:x:[0-9]+:ostel-gateway\n"));
}

TEST(Service, IsHardened) {
    const InstalledPrefix prefix;
    // Ten times the exposure that is shown; a service without any hardening has 96.
    const TFinished security = RunProgram({"systemd-analyze", "security", "--offline=yes",
                                           "--no-pager", "--threshold=15", prefix.File(UNIT)});
    EXPECT_EQ(security.status, 0) << security.output;
    for (const char* setting :
         {"DynamicUser=yes", "StateDirectory=ostel-gateway", "NoNewPrivileges=yes",
          "ProtectSystem=strict", "CapabilityBoundingSet=\n"}) {
        EXPECT_THAT(Contents(prefix.File(UNIT)), HasSubstr(std::string("\n") + setting));
    }
}

TEST(Service, NeedsNoSystemCallThatItsUnitForbids) {
    if (const std::string reason = Strace::WhyNot(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const InstalledPrefix prefix;
    const SystemBus bus(prefix, WithoutRights::Group());
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    const std::string address = TlsPeer::FreeHost();
    const std::string certificates = prefix.File("certs");
    ASSERT_EQ(RunProgram({OSTEL_ROOT "/scripts/make-certs", certificates, "unit"}).status, 0);
    ASSERT_EQ(RunProgram({"chmod", "-R", "a+rX", certificates}).status, 0);
    std::filesystem::permissions(prefix.Path(), std::filesystem::perms(0777));
    // -D makes the gateway, not its tracer, the process that is signalled.
    ChildProcess gateway(WithoutRights::Runs({"strace", "-D", "-f", "-o", prefix.File("trace"),
                                              prefix.File("bin/ostel-gateway"), "--state",
                                              prefix.File("state.sqlite"), "--remote-address",
                                              address, "--certs", certificates + "/unit"}));
    ASSERT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    const std::string tool = prefix.File("bin/ostelcli");
    EXPECT_EQ(RunProgram({tool, "add", "Device.NAT.PortMapping."}).status, 0);
    const TFinished remote = RunProgram({tool, "remote", address, "--certs", certificates + "/unit",
                                         "get", "Device.DeviceInfo.ModelName"});
    EXPECT_EQ(remote.status, 0) << remote.errors;
    gateway.Signal(SIGTERM);
    EXPECT_EQ(gateway.Wait(), 0);
    const std::regex ended("\\n" + std::to_string(gateway.Pid()) + R"( +\+\+\+ exited with 0)");
    EXPECT_TRUE(
        WaitUntil([&] { return std::regex_search(Contents(prefix.File("trace")), ended); }));

    const TNames used = CallsOf(Contents(prefix.File("trace")));
    EXPECT_THAT(used, testing::IsSupersetOf({"sendmsg", "fdatasync", "bind"}));
    const TNames allowed = AllowedCalls(Contents(prefix.File(UNIT)));
    for (const std::string& call : used) {
        EXPECT_THAT(allowed, testing::Contains(call));
    }
}

}  // namespace
