// Conversions between the seams' C++ values and Foundation / Core
// Foundation objects. Objective-C++: include from .mm files only.
#pragma once

#ifndef __OBJC__
#error "cf_convert.h declares Objective-C types; include it from .mm files only"
#endif

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "support/error.h"

namespace ac::platform::macos {

// UTF-8 text of a string; "" for nil.
std::string toStdString(NSString* string);
std::string toStdString(CFStringRef string);
NSString* toNSString(const std::string& text);

// JSON as property-list objects: string → NSString, integer → NSNumber
// (64-bit), floating point → NSNumber (double), boolean → NSNumber (CFBoolean),
// array → NSArray, object → NSDictionary. A property list has no null: null
// array elements and object members are left out, and a null value gives nil.
// Every result is toll-free bridged to its Core Foundation counterpart.
id toPropertyList(const nlohmann::json& value);

// The reverse. Integers stay integers and doubles stay doubles, so a round
// trip keeps each value's type. Objects with no JSON form (dates, data) and
// dictionary entries whose key is not a string are left out; nil is null.
nlohmann::json toJSON(id object);

// An error as the platform reported it: its domain, code and localized
// description, unchanged.
Error toError(NSError* error);
std::optional<Error> toOptionalError(NSError* error);

}  // namespace ac::platform::macos
