#include "CommandLine.h"

#include "Commands.h"

#include "KQC/Error.h"
#include "KQS/ShellSyntax.h"

namespace kqagent {
namespace {

// The words from the console down to `command` ("veid allocate").
std::string pathOf(const CLI::App* command)
{
    std::string path;
    for (; command && command->get_parent(); command = command->get_parent())
        path = path.empty() ? command->get_name() : command->get_name() + " " + path;
    return path;
}

bool isWithin(const CLI::App* command, const CLI::App* ancestor)
{
    for (; command; command = command->get_parent())
        if (command == ancestor)
            return true;
    return false;
}

// The command `name` declared under `parent`, nullptr when there is none.
CLI::App* childNamed(CLI::App& parent, const std::string& name)
{
    for (CLI::App* child : parent.get_subcommands([](CLI::App*) { return true; }))
        if (child->get_name() == name)
            return child;
    return nullptr;
}

} // namespace

CommandLine::CommandLine(const std::string& program) : m_program(program), m_root(new CLI::App("", program))
{
    m_root->require_subcommand(1);
}

CLI::App& CommandLine::made(CLI::App& parent, const std::string& name, const std::string& summary)
{
    CLI::App* command = parent.add_subcommand(name, summary);
    // A second command word after a finished command is an error, not a
    // second command.
    command->require_subcommand(0, 1);
    return *command;
}

CLI::App& CommandLine::add(CLI::App& parent, const std::string& name, const std::string& synopsis,
                           const std::function<Build(CLI::App&)>& define)
{
    CLI::App* command = childNamed(parent, name);
    if (!command)
        command = &made(parent, name, synopsis);
    // A group that now runs on its own too (mount CT beside mount list).
    command->require_subcommand(0, 1);
    m_builds[command] = define(*command);
    describe(*command, synopsis);
    return *command;
}

void CommandLine::describe(const CLI::App& command, const std::string& synopsis)
{
    m_synopses.emplace_back(&command, synopsis);
}

CLI::App& CommandLine::group(CLI::App& parent, const std::string& name, const std::string& summary)
{
    if (CLI::App* existing = childNamed(parent, name))
        return *existing;
    CLI::App& command = made(parent, name, summary);
    command.require_subcommand(1);
    return command;
}

const CLI::App* CommandLine::chosen() const
{
    const CLI::App* command = m_root.get();
    while (!command->get_subcommands().empty())
        command = command->get_subcommands().front();
    return command;
}

std::string CommandLine::explain(const CLI::ParseError& error) const
{
    // Words nobody took: a misspelt command or option says more than the
    // parser's general complaint.
    const CLI::App* command = chosen();
    std::vector<std::string> rest = m_root->remaining();
    if (!rest.empty())
        command = m_root.get();
    else
        rest = command->remaining();
    std::string prefix = command == m_root.get() ? "" : pathOf(command) + ": ";
    if (!rest.empty() && !rest.front().empty()) {
        const std::string& word = rest.front();
        if (word[0] == '-')
            return prefix + "unknown option '" + word + "'";
        if (command == m_root.get())
            return "unknown command '" + word + "'";
        if (!command->get_subcommands([](const CLI::App*) { return true; }).empty() &&
            dynamic_cast<const CLI::RequiredError*>(&error))
            return prefix + "unknown subcommand '" + word + "'";
        return prefix + "unexpected argument '" + word + "'";
    }
    if (command == m_root.get() && dynamic_cast<const CLI::RequiredError*>(&error))
        return "no command given (" + m_program + " --help lists the commands)";
    // The parser's messages may span lines; UsageError makes them one.
    std::string text = error.what();
    // "--mask: 1 required TEXT missing"
    size_t colon = text.find(": ");
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) && colon != std::string::npos && text[0] == '-')
        return prefix + "option " + text.substr(0, colon) + " needs a value";
    return prefix + text;
}

Runner CommandLine::buildChosen()
{
    auto it = m_builds.find(chosen());
    if (it == m_builds.end())
        throw UsageError(pathOf(chosen()) + ": missing subcommand");
    return it->second();
}

Runner CommandLine::parse(const std::vector<std::string>& words, std::string& help)
{
    // The parser takes the words last first.
    std::vector<std::string> reversed(words.rbegin(), words.rend());
    try {
        m_root->parse(reversed);
    } catch (const CLI::CallForHelp&) {
        help = synopses(*chosen());
        return Runner();
    } catch (const CLI::CallForAllHelp&) {
        help = synopses(*m_root);
        return Runner();
    } catch (const CLI::ParseError& e) {
        throw UsageError(explain(e));
    }
    return buildChosen();
}

std::string CommandLine::synopses(const CLI::App& command) const
{
    std::string text;
    for (const auto& entry : m_synopses)
        if (isWithin(entry.first, &command))
            text += m_program + " " + entry.second + "\n";
    return text;
}

Runner parseBatchLine(const std::string& line)
{
    std::vector<std::string> words;
    if (KQS::splitShellWords(line, words) != 0)
        throw UsageError(KQC::getErrorMessage());
    if (!words.empty() && words[0] == "batch")
        throw UsageError("batch does not nest");
    CommandLine cli("kqagent");
    addAllCommands(cli);
    std::string help;
    Runner runner = cli.parse(words, help);
    if (!runner)
        throw UsageError("help is not available in a batch");
    return runner;
}

} // namespace kqagent
