// SPDX-License-Identifier: Apache-2.0
// JSON as documents and as plain text. Strings are escaped as in JSON in both, so that what comes
// from another process neither forges lines nor reaches a terminal's controls.
#pragma once

#include <binder/PersistableBundle.h>

#include <nlohmann/json.hpp>
#include <string>

/** Keeps the order in which members were added. */
using Json = nlohmann::ordered_json;

/** One line of JSON. Bytes that are not UTF-8 come out as U+FFFD, for JSON has no other text. */
std::string documentOf(const Json& value);

/** The members of an object as "name=value name=value"; those of an inner one stand among them. */
std::string wordsOf(const Json& object);

/**
 * The members of an object as "name: value" lines. Those of an inner object, and the elements of an
 * array, are indented below its name, a line each.
 */
std::string linesOf(const Json& object, const std::string& indent = {});

/** The entries that the service's interface names; a bundle does not list its keys. */
Json entriesOf(const android::os::PersistableBundle& bundle);
