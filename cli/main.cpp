// ostelcli: the data model at the command line.
#include <CLI/CLI.hpp>
#include <csignal>
#include <functional>
#include <iostream>
#include <optional>

#include "Commands.h"
#include "TOstelApplication.h"
#include "Watch.h"

namespace {

constexpr int USAGE_ERROR = 64;
constexpr int NO_BUS = 69;

// The verbs; what is to be done is the one that the command line chose.
class TCommandLine {
public:
    TCommandLine() {
        m_App.name("ostelcli");
        m_App.require_subcommand(1);
        m_App.set_version_flag("--version", TOstelApplication::GetInstance()->GetVersion());
        m_App.add_flag("--json", m_Json, "Print JSON, one document a line")->configurable(false);
        m_App.fallthrough();
        m_App.footer(
            "Exit status: 0, the result's code (RC_INVALID_PARAM_NAME is 4), 255 for RC_FAILURE,\n"
            "64 for a wrong command line, 69 without a bus.\n\n"
            "Examples:\n"
            "  ostelcli get Device.DeviceInfo.SerialNumber\n"
            "  ostelcli get Device.Time. 'Device.Hosts.Host.*.HostName'\n"
            "  ostelcli set Device.X_KAVEN_COM_General.LED.State=BLINK\n"
            "  ostelcli watch Device.X_KAVEN_COM_General. --count 1");
        AddReading();
        AddEvents();
    }

    int Run(int argc, char** argv) {
        try {
            m_App.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return m_App.exit(error) == 0 ? 0 : USAGE_ERROR;
        }
        BlockStopSignals();
        TOstelApplication& application = *TOstelApplication::GetInstance();
        application.Initialize(OSTEL_CLI);
        if (!application.IsInitialized()) {
            std::cerr << "ostelcli: cannot connect to the bus (DBUS_SYSTEM_BUS_ADDRESS names "
                         "another than the system's)"
                      << std::endl;
            return NO_BUS;
        }
        return m_Run();
    }

private:
    void AddReading() {
        CLI::App* const get =
            Add("get", "Read parameters", [this] { return Commands::Get(m_Names, m_Json); });
        get->add_option("NAME", m_Names,
                        "A parameter, a partial path (ends in a point), or a name with \"*\"")
            ->required();
        CLI::App* const set = Add("set", "Write parameters and commit them",
                                  [this] { return Commands::Set(m_Names, !m_NoCommit, m_Json); });
        set->add_option("NAME=VALUE", m_Names, "What to write")->required();
        set->add_flag("--no-commit", m_NoCommit, "Leave the writes staged for 'commit'");
        Add("commit", "Commit everything that is staged",
            [this] { return Commands::Commit(m_Json); });
        Add("apps", "List the applications that are active",
            [this] { return Commands::Apps(m_Json); });
        Add("info", "Show library, bus, gateway and device",
            [this] { return Commands::Info(m_Json); });
    }

    void AddEvents() {
        CLI::App* const watch =
            Add("watch", "Print changes, client devices, events and applications as they happen",
                [this] { return Watch(m_Prefix, m_Count, m_Json); });
        watch->add_option("PREFIX", m_Prefix, "Only parameters whose names begin with it");
        watch->add_option("--count", m_Count, "End after so many notices")
            ->check(CLI::PositiveNumber);
        CLI::App* const event = Add("event", "Send an event to all applications", [this] {
            return Commands::Event(m_EventName, m_EventData, m_Json);
        });
        event->add_option("NAME", m_EventName, "The event's name")->required();
        event->add_option("DATA", m_EventData, "Its data, usually a JSON document")->required();
    }

    CLI::App* Add(const std::string& verb, const std::string& what, std::function<int()> run) {
        CLI::App* const command = m_App.add_subcommand(verb, what);
        command->callback([this, run = std::move(run)] { m_Run = run; });
        return command;
    }

    CLI::App m_App{"Reads, writes and watches the data model of a home gateway."};
    std::function<int()> m_Run;
    bool m_Json = false;
    bool m_NoCommit = false;
    std::vector<std::string> m_Names;
    std::string m_Prefix;
    std::optional<unsigned long> m_Count;
    std::string m_EventName;
    std::string m_EventData;
};

}  // namespace

int main(int argc, char** argv) {
    // A reader that has seen enough, such as head, ends the tool quietly.
    std::signal(SIGPIPE, SIG_DFL);
    return TCommandLine().Run(argc, argv);
}
