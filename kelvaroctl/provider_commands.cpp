// Commands about the provider and about the program itself.
#include "kelvaroctl/commands.h"
#include "kelvaroctl/module_log.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/settings_report.h"

namespace kelvaroctl {

static std::string ImplementationWords(DWORD type)
{
    if (type & NCRYPT_IMPL_HARDWARE_FLAG)
        return "hardware";
    return type & NCRYPT_IMPL_SOFTWARE_FLAG ? "software" : "not reported";
}

Answer ShowProvider(Tool& tool)
{
    const auto provider = tool.OpenProvider();
    const std::string name = ToNarrow(TextIn(provider->Property(NCRYPT_NAME_PROPERTY).value_or(Bytes())));
    const std::string version = provider->Version();
    const DWORD implementation = provider->NumberProperty(NCRYPT_IMPL_TYPE_PROPERTY);
    const DWORD longest = provider->NumberProperty(NCRYPT_MAX_NAME_LENGTH_PROPERTY);
    const SettingsHive hive = tool.hive();
    const SettingsReport report = ReportSettings(hive);
    const std::optional<LogPlace> log = IfPossible(FindLog);
    const std::string advice = log ? LogAdvice(*log) : "log: unknown, since the machine's settings cannot be read";
    const Json object = {
        {"name", name},
        {"version", version},
        {"implementationType", implementation},
        {"implementation", ImplementationWords(implementation)},
        {"maxNameLength", longest},
        {"via", tool.via},
        {"module", provider->place()},
        {"scope", hive.scope()},
        {"settings", report.settings},
        {"log", log ? Json{{"level", log->level}, {"file", log->file}, {"advice", advice}} : Json{{"advice", advice}}}};
    const std::string facts = Columns({{"name", Printable(name)},
                                       {"version", version},
                                       {"implementation", ImplementationWords(implementation)},
                                       {"longest key name", std::to_string(longest) + " characters"},
                                       {"module", provider->place()}});
    return {object, facts + advice + "\nsettings that apply to " + hive.scope() + " keys, " +
                        SettingsPlace(hive.handle()) + "\n" + Columns(report.settingRows, 2)};
}

Answer ListAlgorithms(Tool& tool)
{
    const auto provider = tool.OpenProvider();
    Json algorithms = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const Provider::Algorithm& algorithm : provider->Algorithms()) {
        const std::vector<std::string> operations =
            NamesOfBits(algorithm.operations, {{NCRYPT_CIPHER_OPERATION, "cipher"},
                                               {NCRYPT_HASH_OPERATION, "hash"},
                                               {NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION, "encryption"},
                                               {NCRYPT_SECRET_AGREEMENT_OPERATION, "secret agreement"},
                                               {NCRYPT_SIGNATURE_OPERATION, "signature"}});
        algorithms.push_back({{"name", algorithm.name}, {"operations", operations}});
        rows.push_back({algorithm.name, Joined(operations)});
    }
    return {{{"algorithms", algorithms}}, Columns(rows)};
}

static Answer TextAnswer(const std::string& text)
{
    return {{{"text", text}}, text};
}

Answer PrintCompletion(Tool& tool)
{
    return TextAnswer(tool.shell == "bash" ? BashCompletion() : ZshCompletion());
}

Answer PrintManual(Tool&)
{
    return TextAnswer(ManualPage());
}

// The tool's version, and the module's file if it can be loaded.
Answer ShowVersion(Tool& tool)
{
    Answer answer = {{{"version", KELVARO_VERSION}}, "kelvaroctl " KELVARO_VERSION "\n"};
    try {
        const std::string module = tool.OpenProvider()->place();
        answer.object["module"] = module;
        answer.text += "module " + Printable(module) + "\n";
    } catch (const Failure& failure) {
        answer.object["module"] = nullptr;
        tool.Warn(failure.what());
    }
    return answer;
}

}  // namespace kelvaroctl
