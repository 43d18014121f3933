#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "client/StatusDecoding.h"
#include "platform/Iso8601.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/References.h"

namespace {

using fuzz::codePoints;
using fuzz::require;
using pellix::Status;
using pellix::TrustState;

bool areEqual(const Status& a, const Status& b) {
  return a.state == b.state && a.deviceId == b.deviceId && a.site == b.site && a.email == b.email &&
         a.lastHeartbeat == b.lastHeartbeat && a.serviceReachable == b.serviceReachable;
}

void checkAnyBytes(std::string_view input) {
  const Status status = pellix::decodeStatus(std::string(input));
  require(status.serviceReachable == fuzz::isJsonObject(input),
          "the service is reachable exactly when it answers with an object");
  if (!status.serviceReachable)
    require(areEqual(status, Status{.state = TrustState::offline}),
            "without an object the status is offline and otherwise the default");
  for (const auto& text : {status.deviceId, status.site, status.email})
    require(codePoints(text).has_value(), "texts are UTF-8");
  require(areEqual(status, pellix::decodeStatus(" \n" + std::string(input) + "\t ")) ||
              input.starts_with('\xEF'),
          "white space around the answer does not matter");
}

/// Makes decisions out of the input's bytes; when they are used up, every one is 0.
class Choices {
 public:
  explicit Choices(std::string_view bytes) : rest(bytes) {}

  std::size_t below(std::size_t bound) {
    if (rest.empty()) return 0;
    const auto byte = static_cast<unsigned char>(rest.front());
    rest.remove_prefix(1);
    return byte % bound;
  }

  std::u32string text() {
    const auto bytes = rest.substr(0, below(32));
    rest.remove_prefix(std::min(bytes.size(), rest.size()));
    if (auto points = codePoints(bytes)) return *points;
    std::u32string latin1;
    for (const char byte : bytes) latin1 += static_cast<unsigned char>(byte);
    return latin1;
  }

 private:
  std::string_view rest;
};

std::string jsonString(std::u32string_view text, bool escapesAll) {
  std::string json = "\"";
  const auto escape = [&](char32_t unit) {
    std::array<char, 8> digits{};
    std::snprintf(digits.data(), digits.size(), "\\u%04x", static_cast<unsigned>(unit & 0xFFFF));
    json += digits.data();
  };
  for (const char32_t point : text) {
    if (point >= 0x20 && point != U'"' && point != U'\\' && !escapesAll) {
      json += fuzz::utf8({&point, 1});
    } else if (point >= 0x10000) {
      escape(0xD800 + ((point - 0x10000) >> 10));
      escape(0xDC00 + (point & 0x3FF));
    } else {
      escape(point);
    }
  }
  return json + "\"";
}

std::optional<platform::Date> heartbeat(const std::string& text) {
  using platform::Iso8601Format;
  const auto whole = dateFromIso8601(text, Iso8601Format::internetDateTime);
  return whole ? whole
               : dateFromIso8601(text, Iso8601Format::internetDateTimeWithFractionalSeconds);
}

// An answer is built from the input together with the status that it stands for.
void checkBuiltAnswer(std::string_view input) {
  Choices choices(input);
  Status expected{.serviceReachable = true};
  std::vector<std::string> members;
  for (const char* key : {"state", "device_id", "site", "email", "last_heartbeat", "other"}) {
    constexpr std::array others = {"null",
                                   "17",
                                   "-1.5e3",
                                   "true",
                                   "[\"authorized\"]",
                                   R"({"state":"revoked","device_id":"inner"})"};
    const std::string name = std::string("\"") + key + "\":";
    const std::size_t kind = choices.below(8);
    if (kind == 0) continue;
    if (kind == 1) {
      members.push_back(name + others[choices.below(others.size())]);
      continue;
    }
    std::u32string value = choices.text();
    if (kind == 2) value = U"2024-02-29T23:59:59.5+01:00";
    if (kind == 3) {
      const auto& states = pellix::allTrustStates;
      const std::string state = rawValue(states[choices.below(states.size())]);
      value.assign(state.begin(), state.end());
    }
    members.push_back(name + jsonString(value, kind == 4));

    const std::string text = fuzz::utf8(value);
    if (key == std::string_view("state")) {
      for (const TrustState state : pellix::allTrustStates)
        if (text == rawValue(state)) expected.state = state;
    }
    if (key == std::string_view("device_id")) expected.deviceId = text;
    if (key == std::string_view("site")) expected.site = text;
    if (key == std::string_view("email")) expected.email = text;
    if (key == std::string_view("last_heartbeat")) expected.lastHeartbeat = heartbeat(text);
  }

  const auto answer = [&] {
    std::string body = "{";
    for (const auto& member : members) body += (body == "{" ? "" : ",") + member;
    return body + "}";
  };
  require(areEqual(pellix::decodeStatus(answer()), expected), "every member is taken as it stands");
  const auto turns = static_cast<std::ptrdiff_t>(choices.below(members.size() + 1));
  std::rotate(members.begin(), members.begin() + turns, members.end());
  std::reverse(members.begin(), members.end());
  require(areEqual(pellix::decodeStatus(answer()), expected), "the members' order does not matter");
}

}  // namespace

void fuzz::checkInput(std::string_view input) {
  if constexpr (!hasReferences) {
    pellix::decodeStatus(std::string(input));
    return;
  }
  checkAnyBytes(input);
  checkBuiltAnswer(input);
}
