// Reading a scenario's JSON with the path of every value, so that an error
// says where ("steps[3].hal: expected ..."). Used by the scenario loader and
// the argument kinds it reads.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace sim::scenario {

using Json = nlohmann::ordered_json;

// Thrown inside the reader only; ParseScenario turns it into a LoadError.
struct Failure {
  std::string path;
  std::string message;
};

inline std::string Join(const std::vector<std::string>& items, const std::string& separator = ", ") {
  std::string text;
  for (size_t i = 0; i < items.size(); ++i) text += (i ? separator : "") + items[i];
  return text;
}

// A value for an error message: its kind and the start of its text (values
// are at most kMaxDepth deep, so the text is bounded work).
inline std::string Shown(const Json& value) {
  static const char* const kKinds[] = {"null",      "an object",  "an array",   "a string",
                                       "a boolean", "an integer", "an integer", "a number with a fraction"};
  const auto kind = static_cast<size_t>(value.type());
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (text.size() > 40) text = text.substr(0, 37) + "...";
  return std::string(kind < std::size(kKinds) ? kKinds[kind] : "something else") + " (" + text + ")";
}

inline std::string Article(const std::string& word) {
  return std::string("AEIOU").find(word[0]) == std::string::npos ? "a " : "an ";
}

// A value inside the scenario with its JSON path, for errors that say where.
class Node {
 public:
  Node(const Json& value, std::string path) : m_value(&value), m_path(std::move(path)) {}

  const Json& value() const { return *m_value; }
  const std::string& path() const { return m_path; }
  [[noreturn]] void Fail(const std::string& message) const { throw Failure{m_path, message}; }
  [[noreturn]] void Expected(const std::string& what) const { Fail("expected " + what + ", got " + Shown(*m_value)); }

  bool IsNull() const { return m_value->is_null(); }
  bool Has(const std::string& key) const { return m_value->is_object() && m_value->contains(key); }
  Node At(const std::string& key) const { return Node(m_value->at(key), m_path.empty() ? key : m_path + "." + key); }
  // The members of `key`; none when it is not given.
  std::vector<std::pair<std::string, Node>> MembersOf(const std::string& key, const std::string& what) const {
    return Has(key) ? At(key).Members(what) : std::vector<std::pair<std::string, Node>>{};
  }

  std::vector<Node> Items(const std::string& what) const {
    if (!m_value->is_array()) Expected(what);
    std::vector<Node> items;
    for (size_t i = 0; i < m_value->size(); ++i)
      items.emplace_back((*m_value)[i], m_path + "[" + std::to_string(i) + "]");
    return items;
  }
  std::vector<std::pair<std::string, Node>> Members(const std::string& what) const {
    if (!m_value->is_object()) Expected(what);
    std::vector<std::pair<std::string, Node>> members;
    for (auto it = m_value->begin(); it != m_value->end(); ++it) members.emplace_back(it.key(), At(it.key()));
    return members;
  }
  // Rejects keys outside `known`, naming the ones that are allowed.
  void OnlyKeys(const std::vector<std::string>& known, const std::string& what) const {
    for (const auto& [key, value] : Members(what)) {
      if (std::find(known.begin(), known.end(), key) == known.end()) {
        Fail("unknown key \"" + key + "\" in " + what + "; known keys: " + Join(known));
      }
    }
  }

  std::string String(const std::string& what = "a string") const {
    if (!m_value->is_string()) Expected(what);
    return m_value->get<std::string>();
  }
  bool Bool() const {
    if (!m_value->is_boolean()) Expected("true or false");
    return m_value->get<bool>();
  }
  // An integer in [low, high]; a string holding a decimal or "0x" number is
  // accepted too, since addresses and codes read better in hexadecimal.
  int64_t Integer(int64_t low, int64_t high, const std::string& what) const {
    const std::string range = " from " + std::to_string(low) + " to " + std::to_string(high);
    int64_t number = 0;
    if (m_value->is_number_unsigned() && m_value->get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) {
      Fail("expected " + what + range + ", got " + m_value->dump());
    } else if (m_value->is_number_integer()) {
      number = m_value->get<int64_t>();
    } else if (m_value->is_string()) {
      const std::string text = m_value->get<std::string>();
      char* end = nullptr;
      errno = 0;
      number = std::strtoll(text.c_str(), &end, 0);
      if (text.empty() || *end != '\0' || errno == ERANGE) Expected(what);
    } else {
      Expected(what);
    }
    if (number < low || number > high) Fail("expected " + what + range + ", got " + std::to_string(number));
    return number;
  }
  int64_t Any64(const std::string& what) const { return Integer(INT64_MIN, INT64_MAX, what); }
  uint64_t Unsigned64(const std::string& what) const {
    return m_value->is_number_unsigned() ? m_value->get<uint64_t>()
                                         : static_cast<uint64_t>(Integer(0, INT64_MAX, what));
  }
  std::vector<std::string> Strings(const std::string& what) const {
    std::vector<std::string> strings;
    for (const Node& item : Items(what)) strings.push_back(item.String(what));
    return strings;
  }
  std::vector<int64_t> Numbers(const std::string& what, const std::string& each = "a number") const {
    std::vector<int64_t> numbers;
    for (const Node& item : Items(what)) numbers.push_back(item.Any64(each));
    return numbers;
  }

 private:
  const Json* m_value;
  std::string m_path;
};

}  // namespace sim::scenario
