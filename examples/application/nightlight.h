#pragma once

#include <chrono>
#include <string>

#include <Oxil.h>

#include "lamp.h"

/** The table Lamp of the script. */
class LampApi : public oxil::LuaApi {
public:
    int onLoading() override;
};

/** A lamp that a script dims until it is dark. There is one at a time. */
class Nightlight {
public:
    Nightlight(Lamp& lamp, const std::string& script);

    /** Whether the script has begun; it goes on from the main loop, a step in each interval. */
    bool start(std::chrono::milliseconds interval);

private:
    LampApi api_;  // outlives the script that it is added to
    oxil::LuaScript script_;
};
