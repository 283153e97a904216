#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace oxil::test {

/**
 * Answers what is asked of the platform's system information while it lives, and keeps the keys.
 *
 * A key without an answer is refused, and the asker's value left alone. At most one lives at a
 * time; a question asked while none lives is refused and fails the running test. May be asked from
 * several threads at once.
 */
class PlatformCalls {
public:
    /** What is returned for a key without an answer. */
    static constexpr int REFUSED = -1;

    PlatformCalls();
    ~PlatformCalls();

    PlatformCalls(const PlatformCalls&) = delete;
    PlatformCalls& operator=(const PlatformCalls&) = delete;

    /** @param status  what is returned; the value is stored whatever it is */
    void answer(const std::string& key, int value, int status = 0);

    /** From now on the key is refused with this status. */
    void refuse(const std::string& key, int status = REFUSED);

    /** Called before each answer, on the asking thread. To be set before anybody asks. */
    void onAsked(const std::function<void()>& function) { __onAsked = function; }

    /** The keys asked for so far, in order. */
    std::vector<std::string> keys() const;

    int ask(const std::string& key, int* value);

private:
    struct Answer {
        int status;
        std::optional<int> value;
    };

    mutable std::mutex __mutex;
    std::map<std::string, Answer> __answers;
    std::vector<std::string> __keys;
    std::function<void()> __onAsked;
};

}  // namespace oxil::test
