"""Reads a recipe for BitBake, as far as Oxil's goes: whatever else it says is an error."""
import re

ASSIGNMENT = re.compile(r'([\w:${}-]+) (\?=|=|\+=) "(.*)"')
FUNCTION = re.compile(r"([\w:]+)\(\) \{")


class Recipe:
    def __init__(self, file, settings):
        """The settings are what is set before: by BitBake's own files and by its user."""
        self.variables = dict(settings)
        self.functions = {}
        self.classes = []
        name, self.variables["PV"] = file.stem.split("_")
        self.variables |= {"PN": name, "BPN": name, "BP": file.stem.replace("_", "-")}

        lines = iter(file.read_text().replace("\\\n", "").splitlines())
        for line in lines:
            if assignment := ASSIGNMENT.fullmatch(line):
                self._assign(*assignment.groups())
            elif function := FUNCTION.fullmatch(line):
                body = iter(lambda: next(lines), "}")
                self.functions[function[1]] = "\n".join(body)
            elif line.startswith("inherit "):
                self.classes += line.split()[1:]
            elif line and not line.startswith("#"):
                raise ValueError(f"{file}: not understood: {line}")

    def _assign(self, name, operator, value):
        name = self.expand(name)
        if operator == "+=":
            self.variables[name] = f"{self.variables.get(name, '')} {value}"
        elif operator == "=" or name not in self.variables:
            self.variables[name] = value

    def expand(self, text):
        """Unlike BitBake, it lets nothing stay that is not known."""
        while "${" in text:
            text = re.sub(r"\$\{(\w+)\}", lambda found: self.variables[found[1]], text)
        return text

    def get(self, name):
        return self.expand(self.variables[self.expand(name)])

    def function(self, name):
        return self.expand(self.functions.get(name, ":"))
