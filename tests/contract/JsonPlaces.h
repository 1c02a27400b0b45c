#pragma once

#include <functional>
#include <rapidjson/document.h>
#include <string>
#include <vector>

namespace kvx::test {

/// Calls the function with the value, empty place, and with each value in it; places are JSON
/// pointers.
using JsonVisit = std::function<void(const rapidjson::Value &, const std::string &place)>;
void forEachValue(const rapidjson::Value &value, const JsonVisit &visit);

/// The places of all values in this one, which is not among them; of the elements of an array, one
/// of each shape.
std::vector<std::string> placesIn(const rapidjson::Value &value);

/// With "*" for the numbers of elements.
std::string anyElement(const std::string &pointer);

/// As JSON: a value of each type, and the numbers that a cast makes another of.
const std::vector<const char *> &valuesOfEachType();

} // namespace kvx::test
