#pragma once

#include <string>
#include <vector>

#include "Insight/JsonPlaces.h"
#include "quillmar/ConversionValues.h"

namespace quillmar::insight {

/// A rule that could be read, and where it is.
struct CheckedRule {
  ConversionValues::ConversionValue value;
  Place place;

  Place windowPlace(Window window) const { return place.member("windows").member(rawValue(window)); }
};

/// An entry of "lockWindows" that could be read, and where it is.
struct CheckedLock {
  std::string window;
  ConversionValues::LockWindowConfiguration value;
  Place place;
};

/// What could be read of a configuration, in its order.
struct CheckedDocument {
  Place root;
  std::vector<CheckedRule> rules;
  std::vector<CheckedLock> locks;
};

}  // namespace quillmar::insight
