#pragma once

#include <string>

#include "ui/KeypadInputWindow.h"

namespace demo {

/// Shows what the library tells the application, and is its edit field. Pulling the trigger arms
/// the readers and lights the aim, letting it go starts the scan; Enter ends the text, Esc the
/// application.
class DemoWindow : public KeypadInputWindow {
public:
    DemoWindow() : KeypadInputWindow(0) {}

    bool onKeyDown(int key) override;
    bool onKeyUp(int key) override;
    void onSystemEvent(int code, void* data) override;

protected:
    void keyDownNotice(int /*key*/, bool /*functionKeyDown*/) override {}
    void suspendedKeyDown(int /*key*/, bool /*functionKeyDown*/) override {}
    void keyUpNotice(int /*key*/, bool /*functionKeyDown*/) override {}
    void functionShortcut(int /*number*/) override {}
    bool putCharacter(unsigned char character, int how, int flag) override;
    void commitCharacter() override { hasPending = false; }
    bool filterKey(int /*key*/) override { return false; }
    bool backspace(bool held) override;
    void menuKey() override {}
    bool isInputActive() override { return true; }

private:
    void showText() const;

    std::string text;
    bool hasPending = false;  // its last character may still be replaced
};

}  // namespace demo
