#include "core/base/Dates.hpp"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <fmt/format.h>

namespace vorlen {

namespace {

using namespace std::chrono;

constexpr std::array<const char*, 7> weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct Parts {
    year_month_day date;
    hh_mm_ss<seconds> clock;
};

Parts split(SystemTime time) {
    auto day = floor<days>(time);
    return Parts{year_month_day(day), hh_mm_ss<seconds>(time - day)};
}

// Reads exactly `width` digits at `at`.
std::optional<int> digits(std::string_view text, std::size_t at, std::size_t width) {
    if (at + width > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = at; i < at + width; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

std::optional<SystemTime> compose(int y, int mo, int d, int h, int mi, int s) {
    year_month_day date{year(y), month(static_cast<unsigned>(mo)), day(static_cast<unsigned>(d))};
    if (!date.ok() || h > 23 || mi > 59 || s > 59) return std::nullopt;
    return sys_days(date) + hours(h) + minutes(mi) + seconds(s);
}

}  // namespace

std::string formatIso8601(SystemTime time) {
    auto [date, clock] = split(time);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", int(date.year()), unsigned(date.month()),
                       unsigned(date.day()), clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::string formatIso8601Basic(SystemTime time) {
    auto [date, clock] = split(time);
    return fmt::format("{:04}{:02}{:02}T{:02}{:02}{:02}Z", int(date.year()), unsigned(date.month()),
                       unsigned(date.day()), clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::optional<SystemTime> parseIso8601(std::string_view text) {
    // YYYY-MM-DDTHH:MM:SS[.fff]Z
    if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':' || text.back() != 'Z')
        return std::nullopt;
    auto y = digits(text, 0, 4), mo = digits(text, 5, 2), d = digits(text, 8, 2);
    auto h = digits(text, 11, 2), mi = digits(text, 14, 2), s = digits(text, 17, 2);
    if (!y || !mo || !d || !h || !mi || !s) return std::nullopt;
    std::string_view rest = text.substr(19, text.size() - 20);
    if (!rest.empty()) {
        if (rest[0] != '.' || rest.size() < 2) return std::nullopt;
        for (char c : rest.substr(1))
            if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
    }
    return compose(*y, *mo, *d, *h, *mi, *s);
}

std::string formatHttpDate(SystemTime time) {
    auto [date, clock] = split(time);
    weekday wd{floor<days>(time)};
    return fmt::format("{}, {:02} {} {:04} {:02}:{:02}:{:02} GMT", weekdays[wd.c_encoding()], unsigned(date.day()),
                       months[unsigned(date.month()) - 1], int(date.year()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count());
}

std::optional<SystemTime> parseHttpDate(std::string_view text) {
    // "Thu, 15 Jan 2026 09:30:00 GMT"
    if (text.size() != 29 || text[3] != ',' || text[4] != ' ' || text[7] != ' ' || text[11] != ' ' ||
        text[16] != ' ' || text[19] != ':' || text[22] != ':' || text.substr(25) != " GMT")
        return std::nullopt;
    int month = 0;
    for (std::size_t i = 0; i < months.size(); ++i)
        if (text.substr(8, 3) == months[i]) month = static_cast<int>(i) + 1;
    bool knownDay = false;
    for (auto name : weekdays) knownDay = knownDay || text.substr(0, 3) == name;
    auto d = digits(text, 5, 2), y = digits(text, 12, 4);
    auto h = digits(text, 17, 2), mi = digits(text, 20, 2), s = digits(text, 23, 2);
    if (!month || !knownDay || !d || !y || !h || !mi || !s) return std::nullopt;
    auto time = compose(*y, month, *d, *h, *mi, *s);
    if (!time) return std::nullopt;
    if (text.substr(0, 3) != weekdays[weekday{floor<days>(*time)}.c_encoding()]) return std::nullopt;
    return time;
}

std::optional<duration<double>> parseRetryAfter(std::string_view text, SystemTime now) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    if (text.empty()) return std::nullopt;
    double seconds = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error == std::errc() && end == text.data() + text.size()) {
        if (seconds < 0 || !std::isfinite(seconds)) return std::nullopt;
        return duration<double>(seconds);
    }
    if (auto date = parseHttpDate(text)) {
        auto delta = duration<double>(*date - now);
        return delta.count() > 0 ? delta : duration<double>(0);
    }
    return std::nullopt;
}

}  // namespace vorlen
