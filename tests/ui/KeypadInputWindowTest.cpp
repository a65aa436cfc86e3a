#include "ui/KeypadInputWindow.h"

#include "support/TerminalTest.h"

namespace {

using std::string;

/// Writes down what it is asked: "put 65 0 0", "commit", ...
class Field : public KeypadInputWindow {
public:
    explicit Field(sim::Journal& terminalJournal)
        : KeypadInputWindow(0), journal(terminalJournal) {}

    void keyDownNotice(int key, bool) override { lastDown = key; }
    void suspendedKeyDown(int key, bool function) override { note("suspended", key, function); }
    void keyUpNotice(int key, bool) override { lastUp = key; }
    void functionShortcut(int number) override { note("shortcut", number); }
    bool putCharacter(unsigned char character, int how, int flag) override {
        note("put", character, how, flag);
        last = character;
        return accepts;
    }
    void commitCharacter() override { journal.note("field", "commit"); }
    bool filterKey(int key) override { return key == filtered; }
    bool backspace(bool held) override { return note("backspace", held), true; }
    void menuKey() override { journal.note("field", "menu"); }
    bool isInputActive() override { return active; }

    void press(int key) {
        onKeyDown(key);
        onKeyUp(key);
    }
    void suspend(bool on) { inputSuspended = on; }

    int lastDown = 0, lastUp = 0, last = 0, filtered = 0;
    bool accepts = true, active = true;

private:
    template <class... Numbers> void note(string text, Numbers... numbers) {
        ((text += " " + std::to_string(static_cast<int>(numbers))), ...);
        journal.note("field", text);
    }

    sim::Journal& journal;
};

struct KeypadInputWindowTest : test::TerminalTest {
    static constexpr int Wait = 1000, Hold = 1001;  // the timers
    Field field{terminal.journal()};
};

TEST_F(KeypadInputWindowTest, EveryKeyGoesThroughItsCharactersAndAroundInBothCases) {
    const struct {
        int key;
        string upper, lower;
    } rows[] = {{11, " \r()<>[]{}0", " \r()<>[]{}0"},
                {2, ".,:;@#&!?\"|", ".,:;@#&!?\"|"},
                {3, "ABC\x8E\x92\x8F\x32", "abc\x84\x91\x86\x32"},
                {4, "DEF3", "def3"},
                {5, "GHI4", "ghi4"},
                {6, "JKL5", "jkl5"},
                {7, "MNO\x99\xD8\xD5\x36", "mno\x94\xF8\xF5\x36"},
                {8, "PQRS7", "pqrs7"},
                {9, "TUV\xDC\x38", "tuv\xFC\x38"},
                {10, "WXYZ9", "wxyz9"},
                {52, "-+*/%=\x80$\x9C\xB1\xAB", "-+*/%=\x80$\x9C\xB1\xAB"}};
    static_assert(sizeof KeypadInputWindow::keyMapText == 12 * 24, "12 rows of 24 bytes");
    string numbers;
    for (const auto& row : rows) {
        field.press(row.key);
        numbers += static_cast<char>(field.last);
    }
    EXPECT_EQ(numbers, "0123456789.");
    for (const int mode : {1, 2}) {
        field.setNumberMode(false);
        if (mode == 2) {
            field.onKeyDown(87);
            field.onTimer(Hold);
            field.onKeyUp(87);
        }
        EXPECT_EQ(field.getInputMode(), mode);
        for (const auto& row : rows) {
            const string& list = mode == 1 ? row.upper : row.lower;
            for (size_t tap = 0; tap <= list.size(); ++tap) {
                field.press(row.key);
                EXPECT_EQ(field.last, static_cast<unsigned char>(list[tap % list.size()]))
                    << row.key << " tapped " << tap;
            }
        }
    }
}

TEST_F(KeypadInputWindowTest, APendingCharacterIsCommittedByAPauseOrAnotherKey) {
    test::EventThread events;
    const auto key = [](int code, bool down) { GuiLibrary::postKey(code, down); };
    key(87, true), key(87, false);
    key(3, true), key(3, false), key(4, true), key(4, false);
    EXPECT_TRUE(test::soon([&] {
        return terminal.journal().history("field") ==
               "put 0 1 0, put 65 0 0, commit, put 68 0 0, commit";
    }));
    EXPECT_GE(between("field: put 68 0 0", "field: commit"), std::chrono::milliseconds(590));
    terminal.journal().clear();
    terminal.clock().setSpeed(20);
    key(3, true);  // held: its case changes each second
    EXPECT_TRUE(await("field: put 97 2 0") && await("field: put 65 2 1"));
    EXPECT_GE(between("field: put 65 0 0", "field: put 97 2 0"), std::chrono::milliseconds(990));
}

TEST_F(KeypadInputWindowTest, HeldKeysTheFunctionKeyAndRefusals) {
    const struct {
        const char* what;
        std::function<void(Field&)> steps;
        const char* shown;
    } cases[] = {
        {"dot", [](Field& f) { f.press(52); }, "put 46 0 0, commit"},
        {"held dot", [](Field& f) { f.onKeyDown(52), f.onTimer(Hold), f.onKeyUp(52); },
         "put 46 0 0, put 45 0 1, commit"},
        {"backspace", [](Field& f) { f.onKeyDown(14), f.onTimer(Hold), f.onKeyUp(14); },
         "backspace 0, backspace 1"},
        {"shortcut", [](Field& f) { f.press(59), f.press(63); }, "shortcut 1, shortcut 5"},
        {"menu", [](Field& f) { f.active = false, f.press(139), f.press(3), f.active = true; },
         "menu"},
        {"filter", [](Field& f) { f.filtered = 3, f.press(3), f.filtered = 0; }, ""},
        {"suspended", [](Field& f) { f.suspend(true), f.press(3), f.suspend(false); },
         "suspended 3 0"},
        {"function and digit", [](Field& f) { f.onKeyDown(87), f.press(3), f.onKeyUp(87); }, ""},
        {"held in number mode", [](Field& f) { f.onKeyDown(87), f.onTimer(Hold), f.onKeyUp(87); },
         "put 0 1 0"},
        {"text shortcut", [](Field& f) { f.press(59), f.press(63); }, "shortcut 6, shortcut 10"},
        {"pause", [](Field& f) { f.press(3), f.onTimer(Wait), f.press(3), f.onTimer(Wait); },
         "put 65 0 0, commit, put 65 0 0, commit"},
        {"refused", [](Field& f) { f.accepts = false, f.press(3), f.press(3), f.accepts = true; },
         "put 65 0 0, put 65 0 0"},
        {"held function key", [](Field& f) { f.onKeyDown(87), f.onTimer(Hold), f.onKeyUp(87); },
         "put 0 2 0"},
        {"lower case", [](Field& f) { f.press(3), f.onClose(); }, "put 97 0 0"},
        {"modal", [](Field& f) { f.onKeyDown(87), f.onModalFinished(nullptr), f.press(4); },
         "commit, put 100 0 0"},
    };
    for (const auto& tried : cases) {
        take("field");
        tried.steps(field);
        EXPECT_EQ(take("field"), tried.shown) << tried.what;
    }
    EXPECT_EQ(field.lastDown, 4);
    EXPECT_EQ(field.lastUp, 4);
}

}  // namespace
