// The program's JSON against the schemas in docs.
#pragma once

#include <string>

/// The first way in which the JSON in `text` breaks its schema, with the place; empty when it obeys.
///
/// JSON is the whole text, or lines between others; the schema is docs/NAME.schema.json where its member
/// "schema" is "tessadrin/NAME/1". Text without any such member obeys.
std::string SchemaFault(const std::string& text);
