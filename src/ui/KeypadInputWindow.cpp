#include "ui/KeypadInputWindow.h"

namespace {

enum Key {
    KeyOne = 2,
    KeyNine = 10,
    KeyZero = 11,
    KeyBackspace = 14,
    KeyDot = 52,
    KeyF1 = 59,
    KeyF5 = 63,
    KeyFunction = 87,
    KeyMenu = 139
};

constexpr int DotIndex = 10;
constexpr int ShortcutsPerMode = 5;

constexpr int WaitTimer = 1000;
constexpr int WaitMs = 600;
constexpr int HoldTimer = 1001;
constexpr int HoldMs = 1000;

}  // namespace

// Escapes are those of the display font's code page.
const unsigned char KeypadInputWindow::keyMapText[Keys][Cases][KeyListSize] = {
    {" \r()<>[]{}0", " \r()<>[]{}0"},
    {".,:;@#&!?\"|", ".,:;@#&!?\"|"},
    {"ABC\x8E\x92\x8F"
     "2",
     "abc\x84\x91\x86"
     "2"},
    {"DEF3", "def3"},
    {"GHI4", "ghi4"},
    {"JKL5", "jkl5"},
    {"MNO\x99\xD8\xD5"
     "6",
     "mno\x94\xF8\xF5"
     "6"},
    {"PQRS7", "pqrs7"},
    {"TUV\xDC"
     "8",
     "tuv\xFC"
     "8"},
    {"WXYZ9", "wxyz9"},
    {"-+*/%=\x80$\x9C\xB1\xAB", "-+*/%=\x80$\x9C\xB1\xAB"},
    {"", ""}};

const unsigned char KeypadInputWindow::keyMapNum[Keys] = "0123456789.";

KeypadInputWindow::KeypadInputWindow(int style) : GuiWindow(style) {}

int KeypadInputWindow::inputKey(int key) const {
    if (functionKeyDown)
        return -1;
    if (key == KeyZero)
        return 0;
    if (key == KeyDot)
        return DotIndex;
    return key >= KeyOne && key <= KeyNine ? key - KeyOne + 1 : -1;
}

int KeypadInputWindow::getInputMode() const {
    if (numberMode)
        return NumberMode;
    return upperCase ? UpperCaseMode : LowerCaseMode;
}

void KeypadInputWindow::setNumberMode(bool on) {
    numberMode = on;
    putCharacter(0, PutModeChange, 0);
}

void KeypadInputWindow::stopKeyWaitTimer() { stopTimer(WaitTimer); }

void KeypadInputWindow::stopKeyHoldTimer() { stopTimer(HoldTimer); }

void KeypadInputWindow::onClose() {
    stopKeyWaitTimer();
    stopKeyHoldTimer();
}

bool KeypadInputWindow::onModalFinished(GuiWindow*) {
    functionKeyDown = false;
    return true;
}

bool KeypadInputWindow::onKeyDown(int key) {
    functionKeyAlone = key == KeyFunction;
    if (functionKeyAlone)
        functionKeyDown = true;
    if (key == KeyMenu)
        menuKey();
    if (!isInputActive())
        return true;
    stopKeyWaitTimer();
    commitOther(key);
    endKeyHold();
    if (inputSuspended) {
        suspendedKeyDown(key, functionKeyDown);
        return true;
    }
    if (!functionKeyDown && filterKey(key))
        return true;
    const int index = inputKey(key);
    if (index >= 0 && numberMode)
        enterNumber(key, index);
    else if (index >= 0)
        enterText(key, index);
    else if (key == KeyFunction || (key == KeyBackspace && !functionKeyDown && backspace(false)))
        startKeyHold(key);
    else if (key >= KeyF1 && key <= KeyF5)
        functionShortcut(key - KeyF1 + 1 + (numberMode ? 0 : ShortcutsPerMode));
    keyDownNotice(key, functionKeyDown);
    return true;
}

void KeypadInputWindow::enterNumber(int key, int index) {
    if (key != KeyDot)
        putCharacter(keyMapNum[index], PutInsert, 1);
    else if (putCharacter(keyMapNum[DotIndex], PutInsert, 0))
        startKeyHold(key);  // held, it becomes a minus
}

void KeypadInputWindow::enterText(int key, int index) {
    // Both halves of a list are of the same length.
    tapIndex = key == pendingKey ? tapIndex + 1 : 0;
    if (keyMapText[index][0][tapIndex] == 0)
        tapIndex = 0;
    pendingKey = key;
    if (putCharacter(pendingCharacter(index), PutInsert, 0))
        startKeyHold(key);
    else
        forgetPending();
}

unsigned char KeypadInputWindow::pendingCharacter(int index) const {
    return keyMapText[index][upperCase ? 0 : 1][tapIndex];
}

bool KeypadInputWindow::onKeyUp(int key) {
    if (key == KeyFunction)
        functionKeyDown = false;
    stopKeyWaitTimer();
    commitOther(key);
    endKeyHold();
    if (!isInputActive() || inputSuspended)
        return true;
    if (pendingKey == key)
        startTimer(WaitMs, WaitTimer);
    if (key == KeyFunction && functionKeyAlone)
        setNumberMode(!numberMode);
    keyUpNotice(key, functionKeyDown);
    return true;
}

void KeypadInputWindow::onTimer(int id) {
    if (id == WaitTimer) {
        stopKeyWaitTimer();
        commitPending();
    } else if (id == HoldTimer) {
        keyHeld();
    }
}

/// The timer keeps running where holding on means something more.
void KeypadInputWindow::keyHeld() {
    const int index = inputKey(heldKey);
    if (!numberMode && index >= 0) {
        if (heldKey != pendingKey)
            return;
        upperCase = !upperCase;
        if (putCharacter(pendingCharacter(index), PutCaseChange, upperCase ? 1 : 0))
            return;
        heldKey = NoKey;
    } else if (heldKey == KeyDot && numberMode) {
        putCharacter('-', PutInsert, 1);
    } else if (heldKey == KeyFunction && !numberMode) {
        upperCase = !upperCase;
        putCharacter(0, PutCaseChange, 0);
        functionKeyAlone = false;
        return;
    } else if (heldKey == KeyBackspace && !functionKeyDown) {
        backspace(true);
    } else {
        heldKey = NoKey;
    }
    stopKeyHoldTimer();
}

void KeypadInputWindow::startKeyHold(int key) {
    heldKey = key;
    startTimer(HoldMs, HoldTimer);
}

/// A dot in number mode is committed when its key cannot be held any longer.
void KeypadInputWindow::endKeyHold() {
    stopKeyHoldTimer();
    if (numberMode && heldKey == KeyDot)
        commitCharacter();
    heldKey = NoKey;
}

void KeypadInputWindow::commitOther(int key) {
    if (pendingKey != key)
        commitPending();
}

void KeypadInputWindow::commitPending() {
    if (pendingKey == NoKey)
        return;
    commitCharacter();
    forgetPending();
}

void KeypadInputWindow::forgetPending() {
    pendingKey = NoKey;
    tapIndex = 0;
}
