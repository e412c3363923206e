#include "Output.h"

#include "JsonWriter.h"
#include "TextTable.h"

#include <algorithm>
#include <cstdio>

#include <iostream>

namespace kqagent {
namespace {

std::string scalarText(const boost::json::value& value)
{
    if (value.is_string())
        return printable(std::string(value.as_string().c_str(), value.as_string().size()));
    if (value.is_double()) {
        // JSON's exponent form ("1.5E-1") is for programs; people read 0.15.
        char text[32];
        std::snprintf(text, sizeof text, "%.6g", value.as_double());
        return text;
    }
    if (value.is_array()) {
        std::string text;
        for (const auto& item : value.as_array())
            text += (text.empty() ? "" : " ") + (item.is_structured() ? jsonText(item) : scalarText(item));
        return text;
    }
    return jsonText(value);
}

// A list of records (counters, processes, mounts) reads best as a table:
// one row per record, a column per field in the order the fields first
// appear. False when `items` is not such a list.
bool printRecords(const std::string& key, const boost::json::array& items)
{
    if (items.empty())
        return false;
    TextRow header;
    for (const auto& item : items) {
        if (!item.is_object())
            return false;
        for (const auto& field : item.as_object()) {
            std::string name(field.key().data(), field.key().size());
            if (std::find(header.begin(), header.end(), name) == header.end())
                header.push_back(name);
        }
    }
    std::vector<TextRow> rows;
    for (const auto& item : items) {
        TextRow row;
        for (const std::string& name : header) {
            const boost::json::value* field = item.as_object().if_contains(name);
            row.push_back(field ? scalarText(*field) : std::string());
        }
        rows.push_back(std::move(row));
    }
    std::cout << key << ":\n";
    printTable(std::cout, header, rows);
    return true;
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

void printJson(const Outcome& outcome)
{
    JsonWriter writer(std::cout);
    writer.beginObject();
    writer.key("rc");
    writer.number(outcome.rc);
    writer.key("error");
    writer.string(outcome.rc == 0 ? std::string() : outcome.error);
    for (const auto& entry : outcome.payload) {
        writer.key(std::string_view(entry.key().data(), entry.key().size()));
        writer.value(entry.value());
    }
    if (outcome.writeJson) {
        writer.key(outcome.streamKey);
        outcome.writeJson(writer);
    }
    writer.endObject();
    std::cout << "\n" << std::flush;
}

void printText(const Outcome& outcome)
{
    for (const auto& entry : outcome.payload) {
        const boost::json::value& value = entry.value();
        if (entry.key() == "data" && value.is_string())
            std::cout.write(value.as_string().data(), static_cast<std::streamsize>(value.as_string().size()));
        else if (value.is_object())
            printObject(value.as_object(), "");
        else if (value.is_array() && printRecords(std::string(entry.key()), value.as_array()))
            continue;
        else
            std::cout << std::string(entry.key()) << ": " << scalarText(value) << "\n";
    }
    if (outcome.writeText)
        outcome.writeText(std::cout);
    std::cout << std::flush;
    if (outcome.rc != 0)
        std::cerr << "error: " << outcome.error << " (result " << outcome.rc << ")\n";
}

void printFailure(int rc, const std::string& error)
{
    Outcome outcome;
    outcome.rc = rc;
    outcome.error = error;
    printJson(outcome);
}

} // namespace

void printOutcome(const Outcome& outcome, bool json)
{
    if (json)
        printJson(outcome);
    else
        printText(outcome);
}

void printUsageError(const std::string& text, bool json)
{
    std::cerr << "kqagent: usage: " << text << "\n";
    if (json)
        printFailure(2, "usage: " + text);
}

void printStartupError(const std::string& text, bool json)
{
    std::cerr << "kqagent: " << text << "\n";
    if (json)
        printFailure(1, text);
}

} // namespace kqagent
