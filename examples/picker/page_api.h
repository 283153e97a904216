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
    explicit PageApi(Page& page) : page_(page) {}

    int onLoading() override;

private:
    Page& page_;
};

}  // namespace picker
