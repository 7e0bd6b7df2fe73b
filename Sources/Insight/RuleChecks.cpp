#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <span>
#include <string>
#include <utility>

#include "Insight/Checks.h"
#include "Insight/Requirements.h"
#include "Json/DecimalNumber.h"
#include "Platform/Ascii.h"

namespace quillmar::insight {

namespace {

constexpr std::int64_t highestFineValue = 63;

using Names = std::initializer_list<std::string_view>;

/// The name without what is easily mixed up.
std::string plainly(std::string_view name) {
  std::string plain;
  for (const char c : name) {
    if (c != '_' && c != '-') {
      plain += lowerAscii(c);
    }
  }
  return plain;
}

void checkMembers(const Place& object, Names known, CheckReport& report) {
  for (const Place& member : object.children()) {
    if (std::find(known.begin(), known.end(), member.name()) != known.end()) {
      continue;
    }
    const auto* const meant = std::find_if(known.begin(), known.end(), [&member](std::string_view name) {
      return plainly(name) == plainly(member.name());
    });
    if (meant != known.end()) {
      add(report, Severity::warning, "member-unknown", member,
          fmt::format("The library does not know {} here and ignores it.", quoted(member.name())),
          fmt::format("Spell it {}.", quoted(*meant)));
    } else {
      add(report, Severity::note, "member-unknown", member,
          fmt::format("The library does not know {} here and ignores it.", quoted(member.name())),
          "Leave it, if somebody else reads it.");
    }
  }
}

void checkWindowNames(const Place& object, CheckReport& report) {
  for (const Place& window : object.children()) {
    if (!windowFromRawValue(window.name())) {
      add(report, Severity::error, "window-unknown", window,
          fmt::format("There is no window {}: nobody reads this.", quoted(window.name())),
          R"(The windows are "window0", "window1" and "window2".)");
    }
  }
}

void checkAllMembers(const CheckedDocument& document, CheckReport& report) {
  checkMembers(document.root, {"app_id", "sdk_enabled", "values", "lockWindows"}, report);
  for (const CheckedRule& rule : document.rules) {
    checkMembers(rule.place, {"key", "windows"}, report);
    checkWindowNames(rule.place.member("windows"), report);
    for (const Place& window : rule.place.member("windows").children()) {
      checkMembers(window, {"fineValue", "coarseValue"}, report);
      for (const Place& half : window.children()) {
        checkMembers(half, {"value", "requiredEvents"}, report);
        for (const Place& event : half.member("requiredEvents").children()) {
          checkMembers(event, {"name", "revenueMin", "revenueMax"}, report);
        }
      }
    }
  }
  checkWindowNames(document.root.member("lockWindows"), report);
  for (const CheckedLock& lock : document.locks) {
    checkMembers(lock.place, {"type", "value"}, report);
  }
}

/// Checks what one rule reports in one window.
class WindowValueCheck {
 public:
  WindowValueCheck(const CheckedRule& rule, Window window, CheckReport& report)
      : rule_(quoted(rule.value.key)),
        window_(window),
        value_(*rule.value.windowValue(window)),
        place_(rule.windowPlace(window)),
        report_(report) {}

  void check() {
    checkFine();
    checkCoarse();
    if (value_.fineValue) {
      checkRequirements("fine", value_.fineValue->requiredEvents, place_.member("fineValue"));
    }
    if (value_.coarseValue) {
      checkRequirements("coarse", value_.coarseValue->requiredEvents, place_.member("coarseValue"));
    }
    if (!value_.fineValue && !value_.coarseValue) {
      add(report_, Severity::error, "never-complete", place_,
          fmt::format("Rule {} has neither a fine nor a coarse value in {}, so it is never sent there.", rule_, name()),
          "Give it a value, or leave the window out.");
    }
    if (value_.fineValue && value_.coarseValue) {
      const Requirements& fine = value_.fineValue->requiredEvents;
      const Requirements& coarse = value_.coarseValue->requiredEvents;
      if (!std::is_permutation(fine.begin(), fine.end(), coarse.begin(), coarse.end(), meanTheSame)) {
        add(report_, Severity::warning, "half-complete", place_,
            fmt::format("The fine and the coarse value of rule {} in {} require different events. As soon as one of "
                        "them has its events, both are sent.",
                        rule_, name()),
            "Let both require the same events, or make two rules of it.");
      }
    }
  }

 private:
  std::string_view name() const { return rawValue(window_); }

  void checkFine() {
    if (!value_.fineValue) {
      if (window_ == Window::window0 && value_.coarseValue) {
        add(report_, Severity::warning, "fine-value-filled-in", place_,
            fmt::format("Rule {} has no fine value in window0. With its coarse value goes the fine value of the "
                        "update before, whichever rule that was for, or 0.",
                        rule_),
            "Give it a fine value.");
      }
      return;
    }
    const std::int64_t fine = value_.fineValue->value;
    const Place place = place_.member("fineValue").member("value");
    if (fine < 0 || fine > highestFineValue) {
      add(report_, Severity::error, "fine-value-out-of-range", place,
          fmt::format("The platform refuses the fine value {}: each update with rule {} fails, and its coarse value is "
                      "lost as well.",
                      fine, rule_),
          fmt::format("Choose one from 0 to {}.", highestFineValue));
    }
    if (window_ != Window::window0) {
      add(report_, Severity::note, "fine-value-unused", place,
          fmt::format("A fine value that is sent in {} reaches nobody. It still ranks rule {} among the others.",
                      name(), rule_),
          "Leave it, if the ranking is meant.");
    }
  }

  void checkCoarse() {
    if (window_ != Window::window0 && !value_.coarseValue && value_.fineValue) {
      add(report_, Severity::error, "coarse-value-missing", place_,
          fmt::format(
              "Only coarse values arrive in {}, and rule {} has none there. What arrives is the coarse value of "
              "the update before, whichever rule that was for, or nothing.",
              name(), rule_),
          "Give it a coarse value, or leave the window out.");
    }
  }

  void checkRequirements(std::string_view half, const Requirements& events, const Place& place) {
    const Place list = place.member("requiredEvents");
    if (events.empty()) {
      add(report_, Severity::warning, "always-complete", list,
          fmt::format("The {} value of rule {} requires no event in {}: any event, the very first too, completes the "
                      "rule.",
                      half, rule_, name()),
          "Name the events that earn it.");
    }
    for (std::size_t i = 0; i < events.size(); ++i) {
      const Requirement& event = events[i];
      if (!canBeMet(event)) {
        const bool otherHalf = !waysToComplete(value_).empty();
        add(report_, otherHalf ? Severity::warning : Severity::error, "never-complete", list.element(i),
            fmt::format(
                "No revenue is at least {} and at most {}, so no {} meets this, and the {} value of rule {} never "
                "has its events in {}.{}",
                decimalText(*event.revenueMin), decimalText(*event.revenueMax), quoted(event.name), half, rule_, name(),
                otherHalf ? " It is sent with the other half." : " The rule is never sent there."),
            "Exchange the bounds.");
      }
      if (event.revenueMin.has_value() != event.revenueMax.has_value()) {
        const std::string_view given = event.revenueMin ? "revenueMin" : "revenueMax";
        const std::string_view missing = event.revenueMin ? "revenueMax" : "revenueMin";
        add(report_, Severity::warning, "bound-ignored", list.element(i).member(given),
            fmt::format("A single bound does not count: each {} meets this, whatever its revenue.", quoted(event.name)),
            fmt::format("Give it a \"{}\" as well.", missing));
      }
    }
  }

  const std::string rule_;
  const Window window_;
  const ConversionValues::WindowValue& value_;
  const Place place_;
  CheckReport& report_;
};

}  // namespace

void checkRules(const CheckedDocument& document, CheckReport& report) {
  checkAllMembers(document, report);
  std::map<std::string_view, std::size_t> lines;
  for (const CheckedRule& rule : document.rules) {
    const Place key = rule.place.member("key");
    if (const auto [first, isNew] = lines.emplace(rule.value.key, key.line()); !isNew) {
      add(report, Severity::warning, "key-repeated", key,
          fmt::format("The rule in line {} has the key {}, too. The library takes them for two rules, but what it "
                      "remembers and logs does not tell them apart.",
                      first->second, quoted(rule.value.key)),
          "Give each rule a key of its own.");
    }
    if (rule.value.windows.empty()) {
      add(report, Severity::error, "never-complete", rule.place.member("windows"),
          fmt::format("Rule {} has no window, so it is never sent.", quoted(rule.value.key)),
          "Give it one, or leave the rule out.");
    }
    for (const Window window : allWindows) {
      if (rule.value.windowValue(window) != nullptr) {
        WindowValueCheck(rule, window, report).check();
      }
    }
  }
}

}  // namespace quillmar::insight
