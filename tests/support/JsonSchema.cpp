#include "tests/support/JsonSchema.h"

#include <jsoncons/json.hpp>
#include <jsoncons_ext/jsonschema/jsonschema.hpp>

#include <fstream>
#include <map>
#include <optional>
#include <sstream>

namespace {

using jsoncons::json;
namespace schemas = jsoncons::jsonschema;

const schemas::json_schema<json>& SchemaOf(const std::string& name)
{
    static std::map<std::string, schemas::json_schema<json>> known;
    auto found = known.find(name);
    if (found == known.end()) {
        std::ifstream file(TESSADRIN_SCHEMAS "/" + name + ".schema.json");
        found = known.emplace(name, schemas::make_json_schema(json::parse(file))).first;
    }
    return found->second;
}

std::optional<json> Parsed(const std::string& text)
{
    try {
        return json::parse(text);
    } catch (const jsoncons::ser_error&) {
        return std::nullopt;
    }
}

std::string FaultOf(const json& document)
{
    const std::string schema = document.at("schema").as<std::string>();  // "tessadrin/NAME/1"
    const size_t name = schema.find('/') + 1;
    std::string fault;
    SchemaOf(schema.substr(name, schema.rfind('/') - name))
        .validate(document, [&fault](const schemas::validation_message& message) -> schemas::walk_result {
            fault = message.instance_location().string() + ": " + message.message();
            return schemas::walk_result::abort;
        });
    return fault;
}

}  // namespace

std::string SchemaFault(const std::string& text)
{
    if (text.find("\"schema\"") == std::string::npos)
        return {};
    if (const auto document = Parsed(text))
        return FaultOf(*document);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("{\"schema\"")) {
            const auto document = Parsed(line);
            const std::string fault = document ? FaultOf(*document) : "no JSON: " + line;
            if (!fault.empty())
                return fault;
        }
    return {};
}
