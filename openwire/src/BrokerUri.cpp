#include "BrokerUri.h"

#include <cms/CMSException.h>

#include <charconv>
#include <string_view>

namespace kvx::openwire {

namespace {

[[noreturn]] void refuseUri()
{
    throw cms::CMSException("Invalid Connection Uri detected.");
}

bool isAlphanumeric(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

void checkCharacters(std::string_view text)
{
    constexpr std::string_view allowed = "-._~:/?#[]@!$&'()*+,;=%";
    for (const char c : text) {
        if (!isAlphanumeric(c) && allowed.find(c) == std::string_view::npos)
            refuseUri();
    }
}

std::int64_t wholeNumber(std::string_view text, std::int64_t highest)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0 || value > highest)
        refuseUri();
    return value;
}

std::chrono::milliseconds milliseconds(std::string_view text)
{
    return std::chrono::milliseconds(wholeNumber(text, 24 * 3600 * 1000));
}

void applyOption(BrokerUri &uri, std::string_view name, std::string_view value)
{
    if (name == "soConnectTimeout")
        uri.connectLimit = milliseconds(value);
    else if (name == "connection.connectResponseTimeout")
        uri.loginLimit = milliseconds(value);
    else if (name == "connection.sendTimeout")
        uri.requestLimit = milliseconds(value);
    else if (name == "connection.closeTimeout")
        uri.closeLimit = milliseconds(value);
    else if (name == "wireFormat.MaxInactivityDuration"
        || name == "wireFormat.maxInactivityDuration")
        uri.wireFormat.maxInactivity = milliseconds(value);
    else if (name == "wireFormat.MaxInactivityDurationInitalDelay"
        || name == "wireFormat.maxInactivityDurationInitalDelay")
        uri.wireFormat.initialDelay = milliseconds(value);
    else if (name == "wireFormat.MaxFrameSize" || name == "wireFormat.maxFrameSize")
        uri.wireFormat.maxFrameSize = wholeNumber(value, uri.wireFormat.maxFrameSize);
    else if (name == "wireFormat.version")
        uri.wireFormat.version = static_cast<int>(wholeNumber(value, 12));
    else if (name == "transport.useInactivityMonitor" && value == "false")
        uri.wireFormat.maxInactivity = std::chrono::milliseconds(0);
}

void readOptions(BrokerUri &uri, std::string_view query)
{
    while (!query.empty()) {
        const std::string_view option = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), option.size() + 1));
        const std::size_t equals = option.find('=');
        if (equals != std::string_view::npos)
            applyOption(uri, option.substr(0, equals), option.substr(equals + 1));
    }
    if (uri.wireFormat.version < 1)
        refuseUri();
}

void readAuthority(BrokerUri &uri, std::string_view authority)
{
    std::string_view host = authority.substr(0, authority.find(':'));
    std::string_view rest = authority.substr(host.size());
    if (!authority.empty() && authority.front() == '[') {
        const std::size_t end = authority.find(']');
        if (end == std::string_view::npos)
            refuseUri();
        host = authority.substr(1, end - 1);
        rest = authority.substr(end + 1);
    }
    uri.host = host;
    if (rest.empty())
        return;
    if (rest.front() != ':' || host.find_first_of("[]@/") != std::string_view::npos)
        refuseUri();
    rest.remove_prefix(1);
    if (!rest.empty())
        uri.port = static_cast<std::uint16_t>(wholeNumber(rest, 65535));
}

} // namespace

BrokerUri BrokerUri::parse(const std::string &text)
{
    checkCharacters(text);
    BrokerUri uri;
    uri.text = text;
    std::string_view rest = text;
    const std::size_t colon = rest.find(':');
    if (colon == std::string_view::npos)
        return uri; // no scheme: the connection will find no transport for it
    uri.scheme = rest.substr(0, colon);
    for (const char c : uri.scheme) {
        if (!isAlphanumeric(c) && c != '+' && c != '-' && c != '.')
            refuseUri();
    }
    rest.remove_prefix(colon + 1);
    if (uri.scheme.empty() || rest.empty())
        refuseUri();
    // Composite addresses of schemes that this library does not have are not taken apart.
    if (rest.substr(0, 2) != "//" || rest.find('(') != std::string_view::npos)
        return uri;
    rest.remove_prefix(2);
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    readAuthority(uri, authority);
    const std::size_t question = rest.find('?');
    if (question != std::string_view::npos)
        readOptions(uri, rest.substr(question + 1, rest.find('#') - question - 1));
    return uri;
}

} // namespace kvx::openwire
