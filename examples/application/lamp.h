#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

/** The lamp itself, which knows nothing of scripts and reports with exceptions. */
class Lamp {
public:
    using Changed = std::function<void(int)>;

    /** @param changed  called with each new brightness, in percent */
    Lamp(int brightness, Changed changed) : brightness_(brightness), changed_(std::move(changed)) {}

    int getBrightness() const { return brightness_; }

    void setBrightness(int percent)
    {
        if (percent < 0 || percent > 100) {
            throw std::out_of_range("no brightness: " + std::to_string(percent));
        }
        brightness_ = percent;
        changed_(percent);
    }

private:
    int brightness_;
    Changed changed_;
};
