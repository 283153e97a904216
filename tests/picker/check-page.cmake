# The page that the picker wrote holds what it should.
#
# cmake -DPAGE=... -P check-page.cmake

file(READ ${PAGE} page)
foreach(part IN ITEMS
    "<title>Keyboard layouts</title>"
    "[0-9]+ layouts with [0-9]+ variants"
    "<section class=\"card\" style=\"--tint: #[0-9a-f]+; --ink: #[0-9a-f]+\">"
    "<span class=\"key\">de</span>"
    "<div class=\"title\">German</div>"
    "<li>German [(]dead acute[)]</li>"
    "<h2>More layouts</h2>")
  if(NOT page MATCHES "${part}")
    message(SEND_ERROR "${PAGE} lacks ${part}")
  endif()
endforeach()
