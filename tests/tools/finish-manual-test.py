"""Runs tools/finish-manual over a manual of four pages, and reckons the contrast of its colours.

    python3 finish-manual-test.py SOURCE_DIR
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(sys.argv.pop())
INDEX = """# The manual

| page | answers |
|---|---|
| [Second things](second.md) | what else |
| [First things](first.md) | what |

| area | classes |
|---|---|
| lights | [Lamp](../inc/OxLamp.h), [codes](../inc/OxCode.h) |

Besides, there is [what changed](../CHANGES.md).
"""


def page(name, body=""):
    """As Doxygen writes it with the header and the footer of doc/site."""
    return (f'<title>Oxil: {name}</title><!-- contents: tools/finish-manual --><div class="headertitle">'
            f'<div class="title">{name}</div></div>{body}<!-- neighbours: tools/finish-manual -->')


class FinishManualTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.source = pathlib.Path(folder.name, "source")
        self.site = pathlib.Path(folder.name, "site")
        self.write(self.source, {
            "README.md": "# Oxil\n", "CHANGES.md": "# Changes\n", "doc/index.md": INDEX,
            "doc/first.md": "# First things\n", "doc/second.md": "# Second things\n",
            "inc/OxLamp.h": "", "inc/OxCode.h": "", "examples/lamp.cpp": "int main() {}\n"})
        self.write(self.site, {
            "index.html": page("Oxil"), "md_CHANGES.html": page("Changes"), "md_index.html": page("The manual"),
            "md_first.html": page("First things"),
            "md_second.html": page("Second things", '<h1><a class="anchor" id="autotoc_md1"></a>\nWhat goes out</h1>'),
            "classoxil_1_1Lamp.html": page("Lamp"), "OxCode_8h.html": page("OxCode.h"),
            "annotated.html": page("Classes"), "files.html": page("Headers"),
            "search/all_0.js": "['lamp',['../classoxil_1_1Lamp.html#title',1,'']]"})

    def write(self, folder, files):
        for name, text in files.items():
            path = folder / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")

    def finish(self):
        return subprocess.run([sys.executable, SOURCE / "tools/finish-manual", self.source, self.site],
                              capture_output=True, check=False, encoding="utf-8")

    def finished(self, name):
        result = self.finish()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return (self.site / name).read_text(encoding="utf-8")

    def refused(self, *reasons):
        result = self.finish()
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.splitlines(), list(reasons))

    def test_contents_have_the_order_of_the_index(self):
        text = self.finished("md_second.html")
        self.assertEqual(re.findall(r'<li><a href="([^"#]*)"', text), [
            "index.html", "md_index.html", "md_second.html", "md_first.html", "classoxil_1_1Lamp.html",
            "OxCode_8h.html", "md_CHANGES.html", "annotated.html", "files.html"])
        self.assertIn('<a href="md_second.html" aria-current="page">Second things</a>', text)
        self.assertEqual(text.count("aria-current"), 1)
        self.assertIn('<li><a href="classoxil_1_1Lamp.html">Lamp</a>', text)
        self.assertIn("<details><summary>Lights</summary>", text)

    def test_the_area_of_the_current_class_is_open(self):
        self.assertIn("<details open><summary>Lights</summary>", self.finished("classoxil_1_1Lamp.html"))

    def test_pages_lead_to_those_before_and_behind(self):
        self.finish()
        for name, expected in {"index.html": [("next", "md_index.html")],
                               "md_second.html": [("prev", "md_index.html"), ("next", "md_first.html")],
                               "md_first.html": [("prev", "md_second.html")],
                               "classoxil_1_1Lamp.html": []}.items():
            text = (self.site / name).read_text(encoding="utf-8")
            self.assertEqual(re.findall('<a rel="(.*?)" href="(.*?)">', text), expected, name)

    def test_links_for_readers_of_the_sources_lead_to_pages(self):
        self.write(self.site, {"md_first.html": page(
            "First things", '<a href="second.md#what-goes-out">out</a> <a href="../examples/lamp.cpp">example</a> '
            '<a href="../inc/OxLamp.h">Lamp</a> <a href="../inc/">headers</a> <a href="../examples/">all</a>')})
        self.assertIn('<a href="md_second.html#what-goes-out">out</a> '
                      '<a href="files/examples/lamp.cpp.txt">example</a> <a href="classoxil_1_1Lamp.html">Lamp</a> '
                      '<a href="files.html">headers</a> all',
                      self.finished("md_first.html"))
        self.assertEqual((self.site / "files/examples/lamp.cpp.txt").read_text(encoding="utf-8"), "int main() {}\n")

    def test_sections_can_be_linked_to_once(self):
        section = '<h1><a class="anchor" id="autotoc_md1"></a>\n&lt;tt&gt;long&lt;/tt&gt; &amp; more</h1>'
        self.write(self.site, {"md_first.html": page("First things", 2 * section)})
        text = self.finished("md_first.html")
        self.assertEqual(text.count('<h2 id="long--more"><a'), 1)
        self.assertEqual(text.count("<code>long</code> &amp; more</h2>"), 2)

    def test_a_link_that_leads_nowhere_is_refused(self):
        self.write(self.site, {"md_first.html": page("First things", '<a href="third.md">third</a>')})
        self.refused("doc/first.md links to third.md, which is not there")

    def test_a_line_of_the_index_that_leads_nowhere_is_refused(self):
        self.write(self.source, {"doc/index.md": INDEX.replace("(second.md)", "(third.md)")})
        self.refused("doc/index.md links to third.md, which is not there")

    def test_a_section_that_is_not_there_is_refused(self):
        self.write(self.site, {"md_first.html": page("First things", '<a href="second.md#what">what</a>')})
        self.refused("md_first.html links to md_second.html, which has no what")

    def test_a_picture_that_is_not_there_is_refused(self):
        self.write(self.site, {"md_first.html": page("First things", '<img src="lamp.png">')})
        self.refused("md_first.html links to lamp.png, which is not there")

    def test_a_search_that_leads_nowhere_is_refused(self):
        self.write(self.site, {"search/all_0.js": "['lamp',['../classoxil_1_1Lamp.html#on',1,'']]"})
        self.refused("search/all_0.js links to classoxil_1_1Lamp.html, which has no on")

    def test_a_class_without_an_area_is_refused(self):
        self.write(self.site, {"classoxil_1_1Fan.html": page("Fan"), "classoxil_1_1Fan_1_1Blade.html": page("Blade")})
        self.refused("doc/index.md has no area for classoxil_1_1Fan.html")


def luminance(color):
    """As WCAG 2 defines it, of "#rrggbb"."""
    parts = [int(color[place:place + 2], 16) / 255 for place in (1, 3, 5)]
    red, green, blue = (part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(one, other):
    darker, lighter = sorted((luminance(one), luminance(other)))
    return (lighter + 0.05) / (darker + 0.05)


class ContrastTest(unittest.TestCase):
    def test_text_and_edges_stand_out_from_what_is_behind_them(self):
        css = (SOURCE / "doc/site/manual.css").read_text(encoding="utf-8")
        blocks = re.findall(r":root {(.*?)}", css, re.DOTALL)
        schemes = [dict(re.findall(r"--(\w+): (#[0-9a-f]{6});", block)) for block in blocks]
        self.assertEqual(len(schemes), 2)
        self.assertEqual(schemes[0].keys(), schemes[1].keys())
        grounds = {"page", "side", "raised", "mark"}
        edges = {"edge": 3}
        for name, scheme in zip(("light", "dark"), schemes):
            for color in scheme.keys() - grounds - {"line"}:  # lines only decorate
                for ground in grounds:
                    self.assertGreaterEqual(contrast(scheme[color], scheme[ground]), edges.get(color, 4.5),
                                            f"{name}: {color} on {ground}")


unittest.main()
