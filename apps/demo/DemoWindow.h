#pragma once

#include "gui/GuiWindow.h"
#include "scanner/BarcodeReader.h"

namespace demo {

/// Shows what the library tells the application. Pulling the trigger lights the aim, letting it go
/// starts the scan; Esc ends the application.
class DemoWindow : public GuiWindow {
public:
    explicit DemoWindow(BarcodeReader& barcodeReader) : GuiWindow(0), reader(barcodeReader) {}

    bool onKeyDown(int key) override;
    bool onKeyUp(int key) override;
    void onSystemEvent(int code, void* data) override;

private:
    BarcodeReader& reader;
};

}  // namespace demo
