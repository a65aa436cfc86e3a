#pragma once

/// How the launcher tells the preloaded terminal what to do.
namespace launcher {

constexpr char RootVariable[] = "TERMINAL_SIM_ROOT";  // a folder that the launcher removes
constexpr char SpeedVariable[] = "TERMINAL_SIM_SPEED";
constexpr char CardVariable[] = "TERMINAL_SIM_CARD";      // a folder with its files; empty: none
constexpr char ScriptVariable[] = "TERMINAL_SIM_SCRIPT";  // empty: none
constexpr char SocketVariable[] = "TERMINAL_SIM_SOCKET";  // empty: none
constexpr char InteractiveVariable[] = "TERMINAL_SIM_INTERACTIVE";  // empty: no
constexpr char PanelVariable[] = "TERMINAL_SIM_PANEL";  // a socket for PanelItems; empty: none

constexpr double LeastSpeed = 0.001, MostSpeed = 10'000;  // of the terminal's time

constexpr int ScriptFailed = 3;  // exit status

}  // namespace launcher
