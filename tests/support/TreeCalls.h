#pragma once

#include <memory>
#include <string>
#include <vector>

struct _xmlDoc;

namespace oxil::test {

/** The calls of libxml2 and libxslt that can be made to fail. */
enum class TreeCall {
    None,
    NewNode,
    NewDocument,
    SetAttribute,  ///< one that replaces
    AddAttribute,  ///< one that adds
    SaveDocument,
    SaveResult,
    Apply
};

/**
 * Records what the library asks of libxml2 and libxslt while it lives, and can refuse it.
 *
 * What these two call in each other is passed over, and so is what does nothing: to free null. One
 * recorder lives at a time on a thread.
 */
class TreeCalls {
public:
    TreeCalls();

    /** Frees the attribute values that nobody freed. */
    ~TreeCalls();

    TreeCalls(const TreeCalls&) = delete;
    TreeCalls& operator=(const TreeCalls&) = delete;

    /**
     * The calls in order: "new element a", "new document 1.0", "unlink a", "free a",
     * "free document", "free stylesheet", "save document", "save result", "apply"; and, as soon as
     * it was freed, "release NAME" for watched memory.
     */
    const std::vector<std::string>& lines();

    /** Forgets the lines. */
    void clear();

    /** Adds a line, to relate something else to the calls. */
    void note(const std::string& line);

    /** Adds "release NAME" when this memory is freed. At most four at a time, attribute
     *  values that are read included. */
    void watch(const void* memory, const std::string& name);

    /** Makes the next such call fail, without the engine being asked. */
    void refuse(TreeCall call) { __refused = call; }

    /** What the next save without the engine being asked returns. */
    void answerNextSave(int result);

    /** The path, or else the value of an added attribute, that libxml2 or libxslt was given last:
     *  the library's own copy. */
    const void* lastText() const { return __lastText; }

    /** How many attribute values were handed out, and how many of them nobody freed. */
    int valuesMade() const;
    int valuesKept() const;

    /** The result of the last transformation, null if it failed. */
    _xmlDoc* lastResult() const { return __lastResult; }

    /** `errno` when libxslt came back from compiling a stylesheet. */
    int compileError() const { return __compileError; }

private:
    friend struct TreeRecorder;
    struct Watched;

    void __collect();

    std::vector<std::string> __lines;
    std::vector<std::unique_ptr<Watched>> __watched;
    std::vector<std::unique_ptr<Watched>> __values;
    TreeCall __refused = TreeCall::None;
    int __saveResult = -1;
    const void* __lastText = nullptr;
    _xmlDoc* __lastResult = nullptr;
    int __compileError = 0;
};

}  // namespace oxil::test
