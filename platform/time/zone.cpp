// The local zone's spans of constant offset. They come from its file, read as the C library reads it, or else from the C
// library itself: zones mean here what they mean to every program of the host.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

#include "platform/core/clock.h"
#include "platform/core/descriptor.h"
#include "platform/time/civil.h"
#include "platform/time/zone.h"
#include "platform/time/zone_file.h"

namespace platform {

namespace {

constexpr int64_t system_zone_check_ms = 1000;

// Where both ends of an hour have the same offset, so has the hour.
constexpr int64_t hour = 3600;

// Every offset is smaller: 24:59:59 is the largest that TZ can spell.
constexpr int64_t offset_limit = 25 * hour;

zone_span ask(int64_t time) {
    const time_t host_time = static_cast<time_t>(time);
    ::tm local{};
    if (!localtime_r(&host_time, &local))
        return {time, time + 1, 0, false};
    // The offset comes from the fields, not from tm_gmtoff: a zone may also count leap seconds.
    const int64_t days = civil::days_of(local.tm_year + int64_t{1900}, local.tm_mon + 1, local.tm_mday);
    const int64_t shown =
        days * civil::seconds_per_day + local.tm_hour * hour + local.tm_min * 60 + local.tm_sec;
    return {time, time + 1, static_cast<int32_t>(shown - time), local.tm_isdst > 0};
}

bool same_offset(const zone_span& one, const zone_span& other) {
    return one.offset == other.offset && one.daylight == other.daylight;
}

// The first second of the offset or flag that holds at `high`, which are not those at `low`.
int64_t change_between(int64_t low, int64_t high) {
    const zone_span before = ask(low);
    while (high - low > 1) {
        const int64_t middle = low + (high - low) / 2;
        (same_offset(ask(middle), before) ? low : high) = middle;
    }
    return high;
}

// The C library reads the zone's file, and takes UTC in its place when it has no descriptor for that.
bool system_zone_can_be_read() {
    const descriptor file(::open(system_zone_file, O_RDONLY | O_CLOEXEC));
    return file || (errno != EMFILE && errno != ENFILE && errno != ENOMEM);
}

constinit std::mutex host_zone;

// A child forked while another thread asks must find the mutex free, and the C library's own lock with it.
[[maybe_unused]] const int fork_handlers =
    pthread_atfork([] { host_zone.lock(); }, [] { host_zone.unlock(); }, [] { host_zone.unlock(); });

// The zones that were read last in this process, so that a thread's first local time costs no reading. Under the lock;
// never destroyed, since the destructors of a program may still ask for the time.
struct read_zone {
    zone_setting setting;
    std::vector<zone_span> spans;
};
constexpr size_t read_zones_kept = 4;

std::vector<read_zone>& read_zones() {
    static auto* const zones = new std::vector<read_zone>;
    return *zones;
}

uint32_t next_number() {
    static std::atomic<uint32_t> latest{0};
    const uint32_t number = latest.fetch_add(1, std::memory_order_relaxed) + 1;
    return number != 0 ? number : next_number();
}

} // namespace

// Holds the lock and calls tzset while the C library is asked: another thread might make it read another setting. If TZ
// changes in between, or the zone could not be read, the answers are used once and not cached.
class zone::question {
public:
    explicit question(zone& asked) : zone_(asked) {
        host_zone.lock();
        if (zone_.setting_.from_system && !system_zone_can_be_read())
            zone_.usable_ = false;
        ::tzset();
        check_setting(); // here as well: TZ may be changed back before the answers are complete
    }
    ~question() {
        host_zone.unlock();
        check_setting();
    }
    question(const question&) = delete;
    question& operator=(const question&) = delete;

private:
    void check_setting() {
        if (zone_setting::now() != zone_.setting_)
            zone_.usable_ = false;
    }

    zone& zone_;
};

zone_setting zone_setting::now() {
    zone_setting setting;
    if (const char* text = std::getenv("TZ")) {
        setting.text = text;
        return setting;
    }
    setting.from_system = true;
    struct stat status;
    if (stat(system_zone_file, &status) == 0) {
        const uint64_t file[] = {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size),
                                 static_cast<uint64_t>(status.st_mtim.tv_sec),
                                 static_cast<uint64_t>(status.st_mtim.tv_nsec)};
        std::copy(std::begin(file), std::end(file), setting.file);
    }
    return setting;
}

// The thread's zone when it is set still, or else a fresh one.
zone& zone::checked(zone* known) {
    if (!known || !known->is_set_now())
        return thread_own<zone>::renew(new zone(zone_setting::now()));
    known->is_checked_ = true;
    return *known;
}

zone::zone(zone_setting setting)
    : number_(next_number()), setting_(std::move(setting)), variable_("TZ=" + setting_.text) {
    next_check_ms_ = coarse_now_ms() + system_zone_check_ms;
    read();
    if (is_read_)
        make_index();
    else
        fill(0);
}

void zone::read() {
    const std::lock_guard lock(host_zone);
    std::vector<read_zone>& zones = read_zones();
    const auto known = std::find_if(zones.begin(), zones.end(),
                                    [&](const read_zone& other) { return other.setting == setting_; });
    if (known != zones.end()) {
        spans_ = known->spans;
        is_read_ = true;
        return;
    }
    usable_ = read_spans(setting_, spans_);
    is_read_ = !spans_.empty();
    if (setting_.from_system && zone_setting::now() != setting_)
        usable_ = false; // the file was exchanged while it was read
    if (!is_read_ || !usable_)
        return;
    if (zones.size() == read_zones_kept)
        zones.erase(zones.begin());
    zones.push_back({setting_, spans_});
}

// The result of getenv("TZ"). Notes where the variable stands.
const char* zone::find_variable() {
    environment_ = nullptr;
    for (size_t i = 0; environ && environ[i]; ++i) {
        const char* entry = environ[i];
        if (entry[0] == 'T' && entry[1] == 'Z' && entry[2] == '=') {
            environment_ = environ;
            variable_index_ = i;
            return entry + 3;
        }
    }
    return nullptr;
}

// Whether TZ still has this zone's text where it was found, which saves the search. The text is compared each time: a
// string that was handed to putenv may be changed in place.
bool zone::is_variable_unchanged() const {
    return environ && environ == environment_ && environ[0] && environ[variable_index_]
           && std::strcmp(environ[variable_index_], variable_.c_str()) == 0;
}

// Runs on nearly every call of the calendar. The system's zone file is looked at once a second.
bool zone::is_set_now() {
    if (!usable_)
        return false;
    if (is_variable_unchanged())
        return true;
    const char* text = find_variable();
    if (text || !setting_.from_system)
        return text && !setting_.from_system && text == setting_.text;
    const int64_t now = coarse_now_ms();
    if (now < next_check_ms_)
        return true;
    next_check_ms_ = now + system_zone_check_ms;
    return zone_setting::now() == setting_;
}

const zone_span& zone::find(int64_t time) {
    size_t place = index_[entry_of(time)];
    while (place + 1 < spans_.size() && spans_[place].end <= time)
        ++place;
    latest_ = place;
    if (spans_[place].contains(time))
        return spans_[place];
    fill(civil::floor_divide(time, zone_block) * zone_block);
    return find(time);
}

void zone::fill(int64_t block_begin) {
    const question bracket(*this);
    zone_span current = ask(block_begin);
    for (int64_t time = block_begin + hour; time <= block_begin + zone_block; time += hour) {
        zone_span next = ask(time);
        if (!same_offset(current, next)) {
            current.end = next.begin = change_between(time - hour, time);
            add(current);
            current = next;
        }
    }
    current.end = block_begin + zone_block;
    if (current.begin < current.end)
        add(current);
}

// Fills a hole with a span, and joins it with neighbours of the same offset and flag.
void zone::add(const zone_span& span) {
    auto at = std::upper_bound(spans_.begin(), spans_.end(), span.begin,
                               [](int64_t begin, const zone_span& other) { return begin < other.begin; });
    if (at != spans_.begin() && (at - 1)->continues(span)) {
        --at;
        at->end = span.end;
    } else {
        at = spans_.insert(at, span);
    }
    if (at + 1 != spans_.end() && at->continues(*(at + 1))) {
        at->end = (at + 1)->end;
        spans_.erase(at + 1);
    }
    make_index();
}

void zone::make_index() {
    latest_ = 0;
    size_t place = 0;
    for (size_t entry = 0; entry < index_.size(); ++entry) {
        const int64_t begin = entry == 0 ? INT64_MIN : static_cast<int64_t>(entry) << index_shift;
        while (place + 1 < spans_.size() && spans_[place].end <= begin)
            ++place;
        index_[entry] = static_cast<uint16_t>(place);
    }
}

int64_t zone::time_of_local(int64_t local, int daylight_flag) {
    const zone_span& span = at(local);
    if (span.begin > local - offset_limit || local + offset_limit >= span.end)
        return time_near_change(local, daylight_flag);
    if (daylight_flag < 0 || span.daylight == (daylight_flag > 0))
        return local - span.offset;
    return time_with_other_flag(local, zone_span(span), daylight_flag > 0);
}

// Walks through all spans that may hold the local time. The last one that holds it wins: of a time that exists twice, the
// later. A time in a gap takes the offset after the gap, unless only the offset before it has the wanted flag.
int64_t zone::time_near_change(int64_t local, int daylight_flag) {
    const bool any_flag = daylight_flag < 0;
    const bool daylight = daylight_flag > 0;
    const auto fits = [&](const zone_span& span) { return any_flag || span.daylight == daylight; };
    bool exists = false, found = false;
    zone_span holder{}, before{};
    int32_t offset = 0;
    for (zone_span span = at(local - offset_limit);; span = at(span.end)) {
        const int64_t time = local - span.offset;
        const bool in_gap = before.end == span.begin && before.begin != before.end && time < span.begin
                            && local - before.offset >= span.begin;
        if (span.contains(time)) {
            exists = true;
            holder = span;
            if (fits(span)) {
                found = true;
                offset = span.offset;
            }
        } else if (in_gap && !exists) {
            holder = span;
            if (fits(span) || fits(before)) {
                found = true;
                offset = fits(span) ? span.offset : before.offset;
            }
        }
        if (span.end > local + offset_limit)
            break;
        before = span;
    }
    return found ? local - offset : time_with_other_flag(local, holder, daylight);
}

// The flag contradicts the zone at this time: the nearest span with that flag gives the offset. A zone without such a
// span ignores the flag.
int64_t zone::time_with_other_flag(int64_t local, const zone_span& span, bool daylight) {
    const int64_t time = local - span.offset;
    const absence& gone = absence_around(time, daylight);
    if (!gone.known_before && !gone.known_after)
        return time;
    const bool take_before = gone.known_before && (!gone.known_after || time - gone.begin < gone.end - time);
    return local - (take_before ? gone.offset_before : gone.offset_after);
}

const zone::absence& zone::absence_around(int64_t time, bool daylight) {
    std::vector<absence>& known = absences_[daylight];
    const auto after =
        std::upper_bound(known.begin(), known.end(), time,
                         [](int64_t wanted, const absence& gone) { return wanted < gone.begin; });
    if (after != known.begin() && time < (after - 1)->end)
        return *(after - 1);
    return *known.insert(after, look_around(time, daylight));
}

zone::absence zone::look_around(int64_t time, bool daylight) {
    absence gone{std::min<int64_t>(time, 0), std::max(time, last_time) + 1, false, false, 0, 0};
    if (const int64_t day = nearest_day(time, -civil::seconds_per_day, daylight); day >= 0) {
        zone_span season = at(day);
        while (season.end < time && at(season.end).daylight == daylight)
            season = at(season.end);
        gone.known_before = true;
        gone.begin = std::min(season.end, time);
        gone.offset_before = season.offset;
    }
    if (const int64_t day = nearest_day(time, civil::seconds_per_day, daylight); day >= 0) {
        zone_span season = at(day);
        while (season.begin > time && at(season.begin - 1).daylight == daylight)
            season = at(season.begin - 1);
        gone.known_after = true;
        gone.end = std::max(season.begin, time + 1);
        gone.offset_after = season.offset;
    }
    return gone;
}

// Looks for a time with the flag in steps of a day, since no season is shorter. -1 when there is none.
int64_t zone::nearest_day(int64_t time, int64_t step, bool daylight) {
    const auto search = [&](auto is_daylight) {
        int64_t day = std::clamp<int64_t>(time, 0, last_time);
        while (day >= 0 && day <= last_time && is_daylight(day) != daylight)
            day += step;
        return day >= 0 && day <= last_time ? day : -1;
    };
    if (is_read_)
        return search([&](int64_t day) { return at(day).daylight; });
    const question bracket(*this);
    return search([](int64_t day) { return ask(day).daylight; });
}

} // namespace platform
