#pragma once

#include "gui/GuiWindow.h"

/// Turns the 12-key keypad into text entry. In number mode a key gives its digit. In text mode
/// repeated presses of a key go through its characters, the last of which stays pending until a
/// pause or another key; holding the key changes its case. The function key changes the mode when
/// pressed, the case when held.
///
/// An application derives its edit field from it, which shows and edits the text in the abstract
/// operations. Everything runs in the callbacks of the windowing library, under its lock.
/// Characters are those of the display font's 8-bit code page; key codes are Linux input key codes.
class KeypadInputWindow : public GuiWindow {
public:
    /// What a key enters.
    enum InputMode { NumberMode = 0, UpperCaseMode = 1, LowerCaseMode = 2 };

    /// How putCharacter() is meant.
    enum PutMode {
        PutInsert = 0,      ///< insert, or replace the pending character
        PutModeChange = 1,  ///< no character: the mode has changed
        PutCaseChange =
            2  ///< the case of the character just entered, or (0) of the next, has changed
    };

    static constexpr int Keys = 12;         ///< digits 0 to 9, the dot, and one without characters
    static constexpr int Cases = 2;         ///< upper, lower
    static constexpr int KeyListSize = 12;  ///< each list is ended by a NUL

    /// What each key goes through in text mode, and enters in number mode.
    /// @{
    static const unsigned char keyMapText[Keys][Cases][KeyListSize];
    static const unsigned char keyMapNum[Keys];
    /// @}

    /// Starts in number mode, in upper case.
    explicit KeypadInputWindow(int style);

    /// True: the window uses every key.
    /// @{
    bool onKeyDown(int key) override;
    bool onKeyUp(int key) override;
    /// @}

    /// Stops the timers. A pending character is not committed.
    void onClose() override;

    /// Forgets that the function key is down: its up has gone to the other window.
    bool onModalFinished(GuiWindow* modal) override;

    /// The timers 1000 and 1001 are the window's own.
    void onTimer(int id) override;

    /// The number of a digit (0 to 9) or the dot key (10) while the function key is up, else -1.
    int inputKey(int key) const;

    int getInputMode() const;  ///< an InputMode

    /// Tells putCharacter() of the change.
    void setNumberMode(bool on);

protected:
    /// A key has gone down, after whatever it has entered. Not told while no input is active, nor
    /// of a key that filterKey() has used up.
    virtual void keyDownNotice(int key, bool functionKeyDown) = 0;

    /// A key has gone down while `inputSuspended` is set. What was pending is committed, and
    /// menuKey() called, before; nothing else is done with it.
    virtual void suspendedKeyDown(int key, bool functionKeyDown) = 0;

    /// A key has gone up. Not told while no input is active or `inputSuspended` is set.
    virtual void keyUpNotice(int key, bool functionKeyDown) = 0;

    /// F1 to F5: 1 to 5 in number mode, 6 to 10 in text mode.
    virtual void functionShortcut(int number) = 0;

    /// `how` is a PutMode. For an insertion `flag` is 1 when nothing can follow that replaces the
    /// character; with a change of a character's case it is the new one, 1 for upper case. False
    /// refuses the character.
    virtual bool putCharacter(unsigned char character, int how, int flag) = 0;

    /// The character put last is not replaced any more.
    virtual void commitCharacter() = 0;

    /// Sees each key before it is looked at, unless the function key is down. True consumes it.
    virtual bool filterKey(int key) = 0;

    /// Deletes one character, or, when the key is `held`, what it chooses to. False: not to be
    /// held.
    virtual bool backspace(bool held) = 0;

    /// The menu key has gone down, also while no input is active.
    virtual void menuKey() = 0;

    /// While false, no key enters anything.
    virtual bool isInputActive() = 0;

    void stopKeyWaitTimer();  ///< stops the timer whose end commits the pending character
    void stopKeyHoldTimer();  ///< stops the timer whose end makes a key count as held

    bool inputSuspended = false;  ///< set by the derived window: keys go to suspendedKeyDown()

private:
    void enterText(int key, int index);
    void enterNumber(int key, int index);
    void startKeyHold(int key);
    void endKeyHold();
    void commitOther(int key);
    void commitPending();
    void forgetPending();
    void keyHeld();
    unsigned char pendingCharacter(int index) const;

    static constexpr int NoKey = -1;

    int tapIndex = 0;        // of the pending character in its key's list
    int pendingKey = NoKey;  // whose character is not committed
    int heldKey = NoKey;     // whose hold timer runs
    bool functionKeyDown = false;
    bool functionKeyAlone = false;  // it went down, no other did, and it was not held to act
    bool upperCase = true;
    bool numberMode = true;
};
