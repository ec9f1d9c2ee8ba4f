// A document against a JSON schema: as much of the language as our own schemas use, and nothing else.
#pragma once

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

class JsonSchema {
public:
    explicit JsonSchema(nlohmann::json schema) : root(std::move(schema)) {}
    /// The one of docs/NAME.schema.json.
    static JsonSchema Of(const std::string& name)
    {
        std::ifstream file(TESSADRIN_SCHEMAS "/" + name + ".schema.json");
        return JsonSchema(nlohmann::json::parse(file));
    }

    /// The first contradiction, with the place in the document; empty when there is none.
    /// @throws std::logic_error  a word of the schema language that isn't implemented here.
    std::string Check(const nlohmann::json& document) const { return Check(root, document, "$"); }

private:
    using Json = nlohmann::json;

    static bool HasType(const Json& value, const std::string& type)
    {
        return type == "object"    ? value.is_object()
               : type == "array"   ? value.is_array()
               : type == "string"  ? value.is_string()
               : type == "integer" ? value.is_number_integer()
               : type == "number"  ? value.is_number()
               : type == "boolean" ? value.is_boolean()
               : type == "null"    ? value.is_null()
                                   : throw std::logic_error("schema: type " + type);
    }

    static std::string Missing(const Json& names, const Json& value)
    {
        for (const auto& name : names)
            if (!value.contains(name))
                return " lacks " + name.get<std::string>();
        return {};
    }

    std::string CheckMembers(const Json& schema, const Json& value, const std::string& place) const
    {
        for (const auto& [name, member] : value.items()) {
            const std::string inner = place + "." + name;
            const Json properties = schema.value("properties", Json::object());
            const Json others = schema.value("additionalProperties", Json(true));
            std::string fault;
            if (properties.contains(name))
                fault = Check(properties[name], member, inner);
            else if (others.is_object())
                fault = Check(others, member, inner);
            else if (!others.get<bool>())
                fault = inner + " is not in the schema";
            if (!fault.empty())
                return fault;
        }
        return {};
    }

    std::string CheckWord(const std::string& word, const Json& rule, const Json& value,
                          const std::string& place) const
    {
        if (word == "$ref")
            return Check(root.at(Json::json_pointer(rule.get<std::string>().substr(1))), value, place);
        if (word == "const")
            return value == rule ? "" : place + " is not " + rule.dump();
        if (word == "enum")
            return std::ranges::find(rule, value) != rule.end() ? "" : place + " is none of " + rule.dump();
        if (word == "type") {
            const Json types = rule.is_array() ? rule : Json{rule};
            const auto fits = [&](const Json& type) { return HasType(value, type.get<std::string>()); };
            return std::ranges::any_of(types, fits) ? ""
                                                    : place + " is no " + rule.dump() + ": " + value.dump();
        }
        if (word == "minimum" || word == "maximum") {
            const bool fits = word == "minimum" ? value >= rule : value <= rule;
            return fits ? "" : place + " is beyond its " + word;
        }
        if (word == "items") {
            for (size_t i = 0; i < value.size(); ++i)
                if (std::string fault = Check(rule, value[i], place + "[" + std::to_string(i) + "]");
                    !fault.empty())
                    return fault;
            return {};
        }
        if (word == "anyOf") {
            const auto fits = [&](const Json& branch) { return Check(branch, value, place).empty(); };
            return std::ranges::any_of(rule, fits) ? "" : place + " fits no branch of anyOf";
        }
        if (word == "required" && value.is_object()) {
            const std::string fault = Missing(rule, value);
            return fault.empty() ? fault : place + fault;
        }
        if (word == "dependentRequired") {
            for (const auto& [name, names] : rule.items())
                if (std::string fault = Missing(names, value); value.contains(name) && !fault.empty())
                    return place + fault;
            return {};
        }
        static const std::set<std::string> silent = {
            "$schema", "$defs", "title", "description", "required", "properties", "additionalProperties"};
        return silent.contains(word) ? "" : throw std::logic_error("schema: " + word);
    }

    std::string Check(const Json& schema, const Json& value, const std::string& place) const
    {
        for (const auto& [word, rule] : schema.items())
            if (std::string fault = CheckWord(word, rule, value, place); !fault.empty())
                return fault;
        return value.is_object() ? CheckMembers(schema, value, place) : "";
    }

    nlohmann::json root;
};
