// For the walk and the tests, and no part of what the panel is for. An application that begins with
// the panel leaves out this folder, its source in CMakeLists.txt, and in panel.cpp what names the
// observer, with Panel::getService(). The option --clock may go then, too: it stops, here and in
// panel.lua, what moves by itself, so that pictures can be compared.
//
// Says on the standard output what is to be seen, whenever that has changed and the window has come
// to rest, and goes on when the standard input has a line: so a picture can be taken in between.
#pragma once

#include <functional>
#include <string>

#include "../layout.h"

namespace panel {

class Observer {
public:
    Observer(const Layout& layout, const std::function<int()>& getService, bool speaks);
    ~Observer();

    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

private:
    std::string describe() const;
    std::string describe(const std::string& name, GtkWidget* widget) const;
    void rest();
    void tell();

    const Layout& layout_;
    const std::function<int()> getService_;
    std::string told_;
    unsigned int source_ = 0;
};

}  // namespace panel
