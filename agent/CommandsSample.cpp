// Commands on configuration samples: list, show, add, del, clone, from, set,
// import.
#include "Commands.h"
#include "EnvJson.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/Vocabulary.h"
#include "KQS/BashParsers.h"

#include <boost/make_shared.hpp>
#include <sstream>

namespace kqagent {
namespace {

KQC::KQCGUID parseSampleId(const std::string& text)
{
    KQC::KQCGUID id;
    if (id.fromString(text) != 0)
        throw UsageError("'" + text + "' is not a sample identifier");
    return id;
}

// A sample from a file in the configuration files' own format; its NAME
// names the sample. The file is the user's, but it is still read with the
// host-file bounds: a FIFO or a huge file is refused, not read.
KQC::KQCEnvSample readSampleFile(const std::string& path, Outcome& outcome, bool keepIdentity = false)
{
    KQC::KQCEnvSample sample;
    std::string text;
    if (KQC::file2str(path, text) != 0) {
        outcome.rc = -1;
        outcome.error = KQC::getErrorMessage();
        return sample;
    }
    KQC::KQCVocMap vocabularies;
    if (KQC::KQCVocabularyPtr vocabulary = KQC::vocCacheLocal()->getVocabulary())
        vocabularies.push_back(vocabulary);
    sample.config = boost::make_shared<KQS::KQSEnvConfig>();
    std::istringstream input(text);
    if (KQS::KQSEnvConfigBashParser::getInstance(vocabularies)->getConfig(input, *sample.config) != 0) {
        outcome.rc = -1;
        outcome.error = "can't parse sample file '" + path + "': " + KQC::getErrorMessage();
    }
    KQC::KQCOptionalProperty<std::string> uuid;
    sample.config->getUUID(uuid);
    // An imported file brings its sample's identity along; for an added one
    // the file's UUID would make this another copy of that sample.
    if (keepIdentity && uuid.isSpecified() && sample.id.fromString(uuid.get()) != 0)
        sample.id = KQC::KQCGUID();
    sample.config->setUUID(KQC::KQCOptionalProperty<std::string>());
    return sample;
}

// The outcome of an operation that makes a sample: its identifier on success.
Outcome withNewId(int rc, const KQC::KQCGUID& id)
{
    Outcome outcome = resultOf(rc);
    if (outcome.rc == 0)
        outcome.payload["id"] = id.toString();
    return outcome;
}

boost::json::object sampleToJson(const KQC::KQCEnvSample& sample)
{
    boost::json::object object;
    object["id"] = sample.id.toString();
    KQC::KQCOptionalProperty<std::string> name;
    if (sample.config)
        sample.config->getName(name);
    object["name"] = name.get();
    object["config"] = sample.config ? configToJson(*sample.config) : boost::json::object();
    return object;
}

void putSamples(Outcome& outcome, const std::vector<KQC::KQCEnvSample>& samples)
{
    boost::json::array list;
    for (const KQC::KQCEnvSample& sample : samples)
        list.push_back(sampleToJson(sample));
    outcome.payload["samples"] = std::move(list);
}

void addList(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "list", "sample list", [](CLI::App&) -> Build {
        return [] {
            return Runner([](Session& session) {
                std::vector<KQC::KQCEnvSample> samples;
                Outcome outcome = resultOf(session.sampleM().get(&samples, KQC::KQCGUIDSet()));
                if (outcome.rc == 0)
                    putSamples(outcome, samples);
                return outcome;
            });
        };
    });
}

void addShow(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "show", "sample show ID", [&cli](CLI::App& command) -> Build {
        auto& idText = cli.value<std::string>();
        command.add_option("ID", idText, "sample identifier")->required();
        return [&idText] {
            KQC::KQCGUID id = parseSampleId(idText);
            return Runner([id](Session& session) {
                KQC::KQCEnvSample sample;
                Outcome outcome = resultOf(session.sampleM().get(&sample, id));
                if (outcome.rc == 0)
                    putSamples(outcome, {sample});
                return outcome;
            });
        };
    });
}

// "add" and "import" store a sample read from a file; an import keeps the
// file's identity.
void addFromFile(CommandLine& cli, CLI::App& group, const char* name, const char* synopsis, const char* help,
                 bool importing)
{
    cli.add(group, name, synopsis, [&cli, help, importing](CLI::App& command) -> Build {
        auto& file = cli.value<std::string>();
        command.add_option("FILE", file, help)->required();
        return [&file, importing] {
            std::string path = file;
            return Runner([path, importing](Session& session) {
                Outcome outcome;
                KQC::KQCEnvSample sample = readSampleFile(path, outcome, importing);
                if (outcome.rc != 0)
                    return outcome;
                KQC::KQCGUID id;
                return withNewId(importing ? session.sampleM().importSample(sample, &id)
                                           : session.sampleM().add(sample, &id),
                                 id);
            });
        };
    });
}

void addSet(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "set", "sample set ID FILE", [&cli](CLI::App& command) -> Build {
        auto& idText = cli.value<std::string>();
        auto& file = cli.value<std::string>();
        command.add_option("ID", idText, "sample identifier")->required();
        command.add_option("FILE", file, "configuration file")->required();
        return [&idText, &file] {
            KQC::KQCGUID id = parseSampleId(idText);
            std::string path = file;
            return Runner([id, path](Session& session) {
                Outcome outcome;
                KQC::KQCEnvSample sample = readSampleFile(path, outcome);
                if (outcome.rc != 0)
                    return outcome;
                KQC::KQCEnvSample stored;
                outcome = resultOf(session.sampleM().set(id, sample, &stored));
                if (outcome.rc == 0)
                    putSamples(outcome, {stored});
                return outcome;
            });
        };
    });
}

void addDel(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "del", "sample del [ID...]", [&cli](CLI::App& command) -> Build {
        auto& texts = cli.value<std::vector<std::string>>();
        command.add_option("ID", texts, "sample identifiers (none: every sample)");
        return [&texts] {
            KQC::KQCGUIDSet ids;
            for (const std::string& text : texts)
                ids.insert(parseSampleId(text));
            return Runner([ids](Session& session) { return resultOf(session.sampleM().del(ids)); });
        };
    });
}

void addClone(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "clone", "sample clone ID", [&cli](CLI::App& command) -> Build {
        auto& idText = cli.value<std::string>();
        command.add_option("ID", idText, "sample identifier")->required();
        return [&idText] {
            KQC::KQCGUID id = parseSampleId(idText);
            return Runner([id](Session& session) {
                KQC::KQCGUID newId;
                return withNewId(session.sampleM().clone(id, &newId), newId);
            });
        };
    });
}

void addFrom(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "from", "sample from CT", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        return [&ctText] {
            CtRef ct = parseCT(ctText);
            return onEnvironment(ct, [](Session& session, const KQC::KQCEID& eid) {
                KQC::KQCGUID newId;
                return withNewId(session.sampleM().cloneToSample(eid, &newId), newId);
            });
        };
    });
}

} // namespace

void addSampleCommands(CommandLine& cli)
{
    CLI::App& group = cli.group(cli.root(), "sample", "configuration samples");
    addList(cli, group);
    addShow(cli, group);
    addFromFile(cli, group, "add", "sample add FILE", "configuration file", false);
    addDel(cli, group);
    addClone(cli, group);
    addFrom(cli, group);
    addSet(cli, group);
    addFromFile(cli, group, "import", "sample import FILE",
                "sample file (its UUID is kept when this host does not use it)", true);
}

} // namespace kqagent
