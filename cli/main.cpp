// ostelcli: the data model at the command line.

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <exception>
#include <functional>
#include <optional>
#include <system_error>

#include "Commands.h"
#include "LongValue.h"
#include "NoBus.h"
#include "Objects.h"
#include "Output.h"
#include "Progress.h"
#include "Remote.h"
#include "Snapshot.h"
#include "StandardPlaces.h"
#include "TOstelApplication.h"
#include "Watch.h"

namespace {

// The verbs; what is to be done is the one that the command line chose.
class TCommandLine {
public:
    TCommandLine() {
        m_App.name("ostelcli");
        m_App.require_subcommand(1);
        m_App.set_version_flag("--version", TOstelApplication::GetInstance()->GetVersion());
        m_App.add_flag("--json", m_Json, "Print JSON, one document a line")->configurable(false);
        m_App
            .add_flag_callback("--progress", TProgress::AskFor,
                               "Show how far it is from the start, and not only on a terminal")
            ->configurable(false);
        m_App.fallthrough();
        m_App.failure_message(FailureMessage);
        m_App.footer(
            "Exit status: 0, the result's code (RC_INVALID_PARAM_NAME is 4), 255 for RC_FAILURE,\n"
            "64 for a wrong command line, 65 for a malformed file, 66 for none, 69 without a bus,\n"
            "74 when the output cannot be written, 75 for a unit that does not answer in time;\n"
            "1 of 'diff' when something differs, and of 'active' when it is not.\n"
            "RC_FAILURE of a remote request may be a refusal, too. The log tells more; the\n"
            "bundled logging library shows it with ZT_LOGGING_DESTINATION=2 set.\n\n"
            "Examples:\n"
            "  ostelcli get Device.DeviceInfo.SerialNumber\n"
            "  ostelcli get Device.Time. 'Device.Hosts.Host.*.HostName'\n"
            "  ostelcli set Device.X_KAVEN_COM_General.LED.State=BLINK\n"
            "  ostelcli watch Device.X_KAVEN_COM_General. --count 1\n"
            "  ostelcli add Device.NAT.PortMapping.\n"
            "  ostelcli save Device.WiFi. > wifi.json\n"
            "  ostelcli remote 192.0.2.1 get Device.DeviceInfo.SerialNumber");
        AddReading();
        AddObjects();
        AddInstances();
        AddLongValues();
        AddSnapshots();
        AddRemote();
        AddEvents();
    }

    // The exit status.
    int Run(int argc, char** argv) {
        try {
            m_App.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return m_App.exit(error) == 0 ? 0 : Output::USAGE_ERROR;
        }
        try {
            return Do();
        } catch (const std::exception& error) {
            // Out of memory or of threads.
            return Output::Fail(error.what(), RC_RUNTIME_ERROR);
        }
    }

private:
    // "A subcommand is required" helps nobody who gave one and misspelt it.
    static std::string FailureMessage(const CLI::App* app, const CLI::Error& error) {
        const std::vector<std::string> unknown = app->remaining(true);
        const bool isRequirement =
            error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError);
        return (isRequirement && !unknown.empty() ? "'" + unknown[0] + "' is not known\n" : "") +
               CLI::FailureMessage::simple(app, error);
    }

    int Do() {
        TOstelApplication& application = *TOstelApplication::GetInstance();
        if (m_NeedsBus) {
            application.Initialize(OSTEL_CLI);
        }
        if (m_NeedsBus && !application.IsInitialized()) {
            Output::Complain(NoBus());
            return Output::NO_BUS;
        }
        const int status = m_Run();
        if (m_NeedsBus && Output::MayBeUnanswered()) {
            Commands::ComplainWithoutGateway();
        }
        return status;
    }

    void AddReading() {
        CLI::App* const get =
            Add("get", "Read parameters", [this] { return Commands::Get(m_Names, m_Json); });
        get->add_option("NAME", m_Names,
                        "A parameter, a partial path (ends in a point), or a name with \"*\"")
            ->required();
        CLI::App* const set = Add("set", "Write parameters and commit them",
                                  [this] { return Commands::Set(m_Names, !m_NoCommit, m_Json); });
        set->add_option("NAME=VALUE", m_Names, "What to write")->required();
        AddNoCommit(set);
        Add("commit", "Commit everything that is staged",
            [this] { return Commands::Commit(m_Json); });
        Add("apps", "List the applications that are active",
            [this] { return Commands::Apps(m_Json); });
        Add("active", "Tell whether an application is active",
            [this] { return Commands::Active(m_AppName, m_Json); })
            ->add_option("APP", m_AppName, "Its name on the bus, such as OSTEL_DISPATCHER")
            ->required();
        Add("info", "Show library, bus, gateway and device",
            [this] { return Commands::Info(m_Json); });
    }

    void AddEvents() {
        CLI::App* const watch =
            Add("watch", "Print changes, client devices, events and applications as they happen",
                [this] { return Watch(m_Prefix, m_Count, m_Json); });
        watch->add_option("PREFIX", m_Prefix, "Only parameters whose names begin with it");
        AddCount(watch, "End after so many notices");
        CLI::App* const event = Add("event", "Send an event to all applications", [this] {
            return Commands::Event(m_EventName, m_EventData, m_Json);
        });
        event->add_option("NAME", m_EventName, "The event's name")->required();
        event->add_option("DATA", m_EventData, "Its data, usually a JSON document")->required();
    }

    void AddObjects() {
        CLI::App& object = AddGroup("object", "Read or write an object as a whole");
        CLI::App* const get = Add(
            "get", "Read an object, or parameters of it",
            [this] { return Objects::Get(m_Path, m_Names, m_Json); }, &object);
        get->add_option("OBJECT", m_Path, "Its path, which ends in a point")->required();
        get->add_option("NAME", m_Names, "A parameter of it");
        CLI::App* const set = Add(
            "set", "Write parameters of an object: all of them or none",
            [this] { return Objects::Set(m_Path, m_Names, !m_NoCommit, m_Json); }, &object);
        set->add_option("OBJECT", m_Path, "Its path, which ends in a point")->required();
        set->add_option("NAME=VALUE", m_Names, "What to write")->required();
        AddNoCommit(set);
        Add("tree", "List all that stands below an object",
            [this] { return Objects::Tree(m_Path, m_Json); })
            ->add_option("OBJECT", m_Path, "Its path, which ends in a point")
            ->required();
        Add("index-map", "Show the platform's own numbers of instances",
            [this] { return Objects::IndexMap(m_Json); });
    }

    void AddInstances() {
        Add("instances", "List the instances of a table",
            [this] { return Objects::Instances(m_Path, m_Json); })
            ->add_option("TABLE", m_Path, "Its path, such as Device.Hosts.Host.")
            ->required();
        CLI::App* const add = Add("add", "Add an instance to a table and commit it",
                                  [this] { return Objects::Add(m_Path, !m_NoCommit, m_Json); });
        add->add_option("TABLE", m_Path, "Its path, such as Device.NAT.PortMapping.")->required();
        AddNoCommit(add);
        CLI::App* const erase = Add("delete", "Delete instances and commit that", [this] {
            return Objects::Delete(m_Names, !m_NoCommit, m_Json);
        });
        erase->add_option("INSTANCE", m_Names, "Its path, such as Device.NAT.PortMapping.3.")
            ->required();
        AddNoCommit(erase);
    }

    void AddLongValues() {
        CLI::App& group = AddGroup("long", "Read or write a value of any length");
        CLI::App* const get = Add(
            "get", "Write a parameter's value to a file, or as it is to standard output",
            [this] { return LongValue::Get(m_Path, m_File, m_Json); }, &group);
        CLI::App* const set = Add(
            "set", "Take a parameter's value from a file, or from standard input",
            [this] { return LongValue::Set(m_Path, m_File, !m_NoCommit, m_Json); }, &group);
        for (CLI::App* const command : {get, set}) {
            command->add_option("NAME", m_Path, "The parameter")->required();
            command->add_option("FILE", m_File, "The file");
        }
        AddNoCommit(set);
    }

    void AddSnapshots() {
        Add("save", "Print a part of the data model as a snapshot",
            [this] { return Snapshot::Save(m_Path, m_Json); })
            ->add_option("PATH", m_Path, "A partial path or a parameter")
            ->required();
        CLI::App* const load =
            Add("load", "Write what differs from a snapshot, and commit it",
                [this] { return Snapshot::Load(m_File, m_Exact, !m_NoCommit, m_Json); });
        load->add_option("FILE", m_File, "The snapshot")->required();
        load->add_flag("--exact", m_Exact,
                       "Delete instances that the snapshot does not have; a load that fails says "
                       "when their deletion stays staged");
        AddNoCommit(load);
        CLI::App* const diff = Add("diff", "Show what differs from a snapshot",
                                   [this] { return Snapshot::Diff(m_File, m_Path, m_Json); });
        diff->add_option("FILE", m_File, "The snapshot")->required();
        diff->add_option("PATH", m_Path, "Only what stands below it");
    }

    // Requests to another unit need no bus of this one; only what it tells later comes over the
    // bus.
    void AddRemote() {
        CLI::App& group = AddGroup("remote", "Do the same on another unit, over TLS");
        group.add_option("HOST", m_Unit.host, "The unit's IP address")->required();
        group.add_option("--certs", m_Unit.certificates, "Directory of this unit's certificates")
            ->envname("OSTEL_CERTS")
            ->capture_default_str();
        group.add_option("--timeout", m_Unit.timeout, "Seconds to wait for an answer")
            ->check(CLI::Range(1, 3600))
            ->capture_default_str();
        CLI::App* const get = Add(
            "get", "Read parameters", [this] { return Remote::Get(m_Unit, m_Names, m_Json); },
            &group, false);
        get->add_option("NAME", m_Names, "A parameter, a partial path, or a name with \"*\"")
            ->required();
        CLI::App* const set = Add(
            "set", "Write parameters and commit them",
            [this] { return Remote::Set(m_Unit, m_Names, !m_NoCommit, m_Json); }, &group, false);
        set->add_option("NAME=VALUE", m_Names, "What to write")->required();
        AddNoCommit(set);
        Add(
            "commit", "Commit everything that is staged there",
            [this] { return Remote::Commit(m_Unit, m_Json); }, &group, false);
        CLI::App* const file = Add(
            "file", "Fetch a file", [this] { return Remote::File(m_Unit, m_Path, m_File); }, &group,
            false);
        file->add_option("NAME", m_Path, "The file there")->required();
        file->add_option("FILE", m_File, "The file here; standard output without it");
        CLI::App* const event = Add(
            "event", "Send an event to all applications there",
            [this] { return Remote::Event(m_Unit, m_EventName, m_EventData, m_Json); }, &group,
            false);
        event->add_option("NAME", m_EventName, "The event's name")->required();
        event->add_option("DATA", m_EventData, "Its data, usually a JSON document")->required();
        CLI::App* const watch = Add(
            "watch",
            "Print the values there, then changes as they happen; these come as requests to this "
            "unit, so a gateway must serve others here, too",
            [this] { return Remote::Watch(m_Unit, m_Names, m_Count, m_Json); }, &group);
        watch->add_option("NAME", m_Names, "A parameter, a partial path, or a name with \"*\"")
            ->required();
        AddCount(watch, "End after so many changes");
    }

    void AddCount(CLI::App* command, const std::string& what) {
        const auto check = [](const std::string& text) {
            unsigned long count = 0;
            const char* const end = text.data() + text.size();
            const auto [rest, error] = std::from_chars(text.data(), end, count);
            const bool isCount = error == std::errc() && rest == end && count > 0;
            return isCount ? "" : text + " is not a number of at least 1";
        };
        command->add_option("--count", m_Count, what)->check(CLI::Validator(check, "POSITIVE"));
    }

    void AddNoCommit(CLI::App* command) {
        command->add_flag("--no-commit", m_NoCommit, "Leave it staged for 'commit'");
    }

    // A verb that is followed by another.
    CLI::App& AddGroup(const std::string& verb, const std::string& what) {
        CLI::App* const group = m_App.add_subcommand(verb, what);
        group->require_subcommand(1);
        group->fallthrough();
        return *group;
    }

    CLI::App* Add(const std::string& verb, const std::string& what, std::function<int()> run,
                  CLI::App* group = nullptr, bool needsBus = true) {
        CLI::App* const command = (group != nullptr ? group : &m_App)->add_subcommand(verb, what);
        command->callback([this, run = std::move(run), needsBus] {
            m_Run = run;
            m_NeedsBus = needsBus;
        });
        return command;
    }

    CLI::App m_App{"Reads, writes and watches the data model of a home gateway."};
    std::function<int()> m_Run;
    bool m_Json = false;
    bool m_NoCommit = false;
    bool m_Exact = false;
    bool m_NeedsBus = true;
    Remote::TUnit m_Unit;
    std::string m_Path;
    std::string m_File = "-";
    std::vector<std::string> m_Names;
    std::string m_Prefix;
    std::optional<unsigned long> m_Count;
    std::string m_AppName;
    std::string m_EventName;
    std::string m_EventData;
};

}  // namespace

int main(int argc, char** argv) {
    HoldStandardPlaces(argv);
    // A reader that has seen enough, such as head, ends the tool quietly.
    std::signal(SIGPIPE, SIG_DFL);
    return Output::Finish(TCommandLine().Run(argc, argv));
}
