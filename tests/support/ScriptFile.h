#pragma once

#include <string>

namespace oxil::test {

/** A file in the temporary folder that is there as long as this object is. */
class ScriptFile {
public:
    explicit ScriptFile(const std::string& content);
    ~ScriptFile();

    ScriptFile(const ScriptFile&) = delete;
    ScriptFile& operator=(const ScriptFile&) = delete;

    const std::string& path() const { return __path; }

    /** Replaces what the file holds. */
    void write(const std::string& content) const;

private:
    std::string __path;
};

}  // namespace oxil::test
