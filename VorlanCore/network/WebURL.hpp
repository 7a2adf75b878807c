// URL checks for the network clients: what parses as a web address, and how a configured base
// address and a fixed path are joined.
#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace vorlan {

// An absolute http or https URL with a host, as the transport will accept it.
bool isWebURL(std::string_view url);

// An absolute URL whose scheme is written exactly "https" and that has a host.
bool isHttpsURL(std::string_view url);

// The endpoint trimmed of blanks and of every trailing "/", then `path` ("/explain"); nothing
// when the endpoint is blank or the result is not a web URL.
std::optional<std::string> endpointURL(std::string_view endpoint, std::string_view path);

}  // namespace vorlan
