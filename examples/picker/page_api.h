// The table "Page", which the script fills.
#pragma once

#include <Oxil.h>

#include "page.h"

namespace picker {

//! [table]
//   Page.addLayout(name, description, languages, variants)
//   Page.addVariant(description)  of the layout added last
//! [table]
class PageApi : public oxil::LuaApi {
public:
    explicit PageApi(Page& page) : __page(page) {}

    int onLoading() override;

private:
    Page& __page;
};

}  // namespace picker
