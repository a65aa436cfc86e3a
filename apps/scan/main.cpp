// The smallest application: prints each barcode as the trigger (F1) reads it, until Escape.
#include <cstdio>

#include "gui/GuiLibrary.h"
#include "gui/GuiWindow.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"
#include "scanner/BarcodeReader.h"
#include "scanner/ScanRecord.h"

struct ScanWindow : GuiWindow {
    BarcodeReader reader;
    ScanWindow() : GuiWindow(0) { reader.initialize(); }
    bool onKeyDown(int key) override { return key == 59 ? reader.startRead() : false; }
    bool onKeyUp(int key) override { return key == 1 ? GuiLibrary::quit(), true : false; }
    void onSystemEvent(int code, void* data) override {
        if (code == events::ScannedCode)
            std::puts(static_cast<ScanRecord*>(data)->data);
    }
};

int main() {
    if (!PowerManager::initPowerManager())
        return 1;
    {
        ScanWindow window;
        GuiLibrary::run();
    }
    return PowerManager::deinitPowerManager() ? 0 : 1;
}
