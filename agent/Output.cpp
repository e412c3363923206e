#include "Output.h"

#include <iomanip>
#include <iostream>
#include <sstream>

namespace kqagent {
namespace {

std::string scalarText(const boost::json::value& value)
{
    if (value.is_string())
        return std::string(value.as_string().c_str(), value.as_string().size());
    return boost::json::serialize(value);
}

std::string field(const boost::json::object& object, const char* key)
{
    auto it = object.find(key);
    return it == object.end() ? "-" : scalarText(it->value());
}

void printEnvTable(const boost::json::array& envs)
{
    std::cout << std::left << std::setw(40) << "EID" << std::setw(10) << "VEID" << std::setw(7) << "STATE"
              << std::setw(11) << "TRANSITION" << "NAME" << "\n";
    for (const auto& value : envs) {
        if (!value.is_object())
            continue;
        const boost::json::object& env = value.as_object();
        std::cout << std::left << std::setw(40) << field(env, "eid") << std::setw(10) << field(env, "veid")
                  << std::setw(7) << field(env, "state") << std::setw(11) << field(env, "transition")
                  << field(env, "name") << "\n";
    }
}

void printObject(const boost::json::object& object, const std::string& indent)
{
    for (const auto& entry : object) {
        std::string key(entry.key().data(), entry.key().size());
        if (entry.value().is_object()) {
            std::cout << indent << key << ":\n";
            printObject(entry.value().as_object(), indent + "  ");
        } else {
            std::cout << indent << key << ": " << scalarText(entry.value()) << "\n";
        }
    }
}

} // namespace

void printOutcome(const Outcome& outcome, bool json)
{
    if (json) {
        boost::json::object object;
        object["rc"] = outcome.rc;
        object["error"] = outcome.rc == 0 ? std::string() : outcome.error;
        for (const auto& entry : outcome.payload)
            object[entry.key()] = entry.value();
        std::cout << boost::json::serialize(object) << "\n" << std::flush;
        return;
    }
    for (const auto& entry : outcome.payload) {
        const boost::json::value& value = entry.value();
        if (entry.key() == "envs" && value.is_array())
            printEnvTable(value.as_array());
        else if (entry.key() == "data" && value.is_string())
            std::cout << value.as_string().c_str();
        else if (value.is_object())
            printObject(value.as_object(), "");
        else
            std::cout << std::string(entry.key()) << ": " << scalarText(value) << "\n";
    }
    std::cout << std::flush;
    if (outcome.rc != 0)
        std::cerr << "error: " << outcome.error << " (result " << outcome.rc << ")\n";
}

void printUsageError(const std::string& text, bool json)
{
    std::cerr << "kqagent: usage: " << text << "\n";
    if (json) {
        boost::json::object object;
        object["rc"] = 2;
        object["error"] = "usage: " + text;
        std::cout << boost::json::serialize(object) << "\n" << std::flush;
    }
}

} // namespace kqagent
