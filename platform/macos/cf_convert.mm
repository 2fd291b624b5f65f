#include "platform/macos/cf_convert.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace ac::platform::macos {

std::string toStdString(NSString* string) {
  if (!string) return {};
  const char* utf8 = string.UTF8String;
  return utf8 ? std::string(utf8) : std::string();
}

std::string toStdString(CFStringRef string) { return toStdString((__bridge NSString*)string); }

NSString* toNSString(const std::string& text) {
  NSString* string = [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
  return string ?: @"";  // invalid UTF-8 has no NSString form
}

id toPropertyList(const nlohmann::json& value) {
  using Type = nlohmann::json::value_t;
  switch (value.type()) {
    case Type::string:
      return toNSString(value.get_ref<const std::string&>());
    case Type::number_integer:
      return @(value.get<int64_t>());
    case Type::number_unsigned:
      return @(value.get<uint64_t>());
    case Type::number_float:
      return @(value.get<double>());
    case Type::boolean:
      return value.get<bool>() ? @YES : @NO;
    case Type::array: {
      NSMutableArray* array = [NSMutableArray arrayWithCapacity:value.size()];
      for (const auto& element : value) {
        if (id object = toPropertyList(element)) [array addObject:object];
      }
      return array;
    }
    case Type::object: {
      NSMutableDictionary* dictionary = [NSMutableDictionary dictionaryWithCapacity:value.size()];
      for (const auto& [key, member] : value.items()) {
        if (id object = toPropertyList(member)) dictionary[toNSString(key)] = object;
      }
      return dictionary;
    }
    default:  // null, binary, discarded
      return nil;
  }
}

namespace {

nlohmann::json numberToJSON(NSNumber* number) {
  CFNumberRef ref = (__bridge CFNumberRef)number;
  if (CFGetTypeID(ref) == CFBooleanGetTypeID()) return number.boolValue ? true : false;
  if (CFNumberIsFloatType(ref)) return number.doubleValue;
  // Only an unsigned 64-bit value above the signed range needs the unsigned form.
  if (std::strcmp(number.objCType, @encode(unsigned long long)) == 0 &&
      number.unsignedLongLongValue > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
    return number.unsignedLongLongValue;
  return static_cast<int64_t>(number.longLongValue);
}

}  // namespace

nlohmann::json toJSON(id object) {
  if (!object) return nullptr;
  if ([object isKindOfClass:[NSString class]]) return toStdString((NSString*)object);
  if ([object isKindOfClass:[NSNumber class]]) return numberToJSON((NSNumber*)object);
  if ([object isKindOfClass:[NSArray class]]) {
    nlohmann::json array = nlohmann::json::array();
    for (id element in (NSArray*)object) {
      nlohmann::json converted = toJSON(element);
      if (!converted.is_null()) array.push_back(std::move(converted));
    }
    return array;
  }
  if ([object isKindOfClass:[NSDictionary class]]) {
    nlohmann::json dictionary = nlohmann::json::object();
    NSDictionary* source = (NSDictionary*)object;
    for (id key in source) {
      if (![key isKindOfClass:[NSString class]]) continue;
      nlohmann::json converted = toJSON(source[key]);
      if (!converted.is_null()) dictionary[toStdString((NSString*)key)] = std::move(converted);
    }
    return dictionary;
  }
  return nullptr;
}

Error toError(NSError* error) {
  if (!error) return Error{};
  return Error{toStdString(error.domain), static_cast<int64_t>(error.code), toStdString(error.localizedDescription)};
}

std::optional<Error> toOptionalError(NSError* error) {
  if (!error) return std::nullopt;
  return toError(error);
}

}  // namespace ac::platform::macos
