#include "MainLoopCalls.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

#include "NextDefinition.h"

namespace oxil::test {
namespace {

MainLoopCalls* current = nullptr;

bool isDefault(GMainContext* context)
{
    return context == nullptr || context == g_main_context_default();
}

}  // namespace

/** What the definitions below tell the recorder. */
struct MainLoopRecorder {
    static bool refuses(guint interval, gpointer data)
    {
        if (current == nullptr || data == nullptr || !current->__refusing) {
            return false;
        }
        current->note("refuse: " + std::to_string(interval) + " ms");
        return true;
    }

    static void added(const MainLoopCalls::Timeout& timeout)
    {
        if (current != nullptr && timeout.data != nullptr) {
            current->__timeouts.push_back(timeout);
            current->note("add #" + std::to_string(current->__timeouts.size()) + ": " +
                          std::to_string(timeout.interval) + " ms");
        }
    }

    static void removing(guint id)
    {
        if (current == nullptr) {
            return;
        }
        for (std::size_t number = 1; number <= current->timeoutCount(); ++number) {
            if (current->timeout(number).id == id) {
                current->__calling("remove #" + std::to_string(number));
                return;
            }
        }
    }

    static void made(GMainContext* context, GMainLoop* loop)
    {
        if (current != nullptr) {
            current->__defaultContext = isDefault(context);
            used(loop, "new loop");
        }
    }

    static void used(GMainLoop* loop, const char* line)
    {
        if (current != nullptr) {
            current->__loop = loop;
            current->__calling(line);
        }
    }

    static void unreferenced()
    {
        if (current != nullptr) {
            current->__calling("unref loop");
        }
    }

    static void iterating(GMainContext* context, gboolean mayBlock)
    {
        if (current != nullptr && isDefault(context)) {
            ++(mayBlock == FALSE ? current->__polling : current->__blocking);
        }
    }
};

MainLoopCalls::MainLoopCalls()
{
    if (current != nullptr) {
        std::abort();
    }
    current = this;
}

MainLoopCalls::~MainLoopCalls()
{
    current = nullptr;
    for (std::size_t number = 1; number <= __timeouts.size(); ++number) {
        if (isAttached(number)) {
            ADD_FAILURE() << "timeout #" << number << " was left behind";
            remove(number);
        }
    }
}

void MainLoopCalls::__calling(const std::string& line)
{
    note(line);
    if (__hook && line == __hookedLine) {
        std::exchange(__hook, nullptr)();
    }
}

bool MainLoopCalls::isAttached(std::size_t number) const
{
    return g_main_context_find_source_by_id(nullptr, timeout(number).id) != nullptr;
}

void MainLoopCalls::remove(std::size_t number)
{
    GSource* source = g_main_context_find_source_by_id(nullptr, timeout(number).id);
    if (source != nullptr) {
        g_source_destroy(source);
    }
}

}  // namespace oxil::test

// These stand before GLib's own functions, because a definition in the executable wins.

using oxil::test::MainLoopRecorder;
using oxil::test::real;

extern "C" {

guint g_timeout_add(guint interval, GSourceFunc function, gpointer data)
{
    if (MainLoopRecorder::refuses(interval, data)) {
        return 0;
    }
    static auto* const add = real<decltype(g_timeout_add)>("g_timeout_add");
    const guint id = add(interval, function, data);
    MainLoopRecorder::added({id, interval, function, data});
    return id;
}

gboolean g_source_remove(guint id)
{
    static auto* const remove = real<decltype(g_source_remove)>("g_source_remove");
    MainLoopRecorder::removing(id);
    return remove(id);
}

GMainLoop* g_main_loop_new(GMainContext* context, gboolean running)
{
    static auto* const make = real<decltype(g_main_loop_new)>("g_main_loop_new");
    GMainLoop* loop = make(context, running);
    MainLoopRecorder::made(context, loop);
    return loop;
}

void g_main_loop_run(GMainLoop* loop)
{
    static auto* const run = real<decltype(g_main_loop_run)>("g_main_loop_run");
    MainLoopRecorder::used(loop, "run loop");
    run(loop);
}

void g_main_loop_quit(GMainLoop* loop)
{
    static auto* const quit = real<decltype(g_main_loop_quit)>("g_main_loop_quit");
    MainLoopRecorder::used(loop, "quit loop");
    quit(loop);
}

void g_main_loop_unref(GMainLoop* loop)
{
    static auto* const unref = real<decltype(g_main_loop_unref)>("g_main_loop_unref");
    MainLoopRecorder::unreferenced();
    unref(loop);
}

gboolean g_main_context_iteration(GMainContext* context, gboolean mayBlock)
{
    static auto* const iterate =
        real<decltype(g_main_context_iteration)>("g_main_context_iteration");
    MainLoopRecorder::iterating(context, mayBlock);
    return iterate(context, mayBlock);
}

}  // extern "C"
