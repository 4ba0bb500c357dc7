#pragma once

namespace CameraHost {

enum ExitStatus : int {
    EXIT_FINE = 0,
    EXIT_FAULT = 1,  // an event is missing, doubled or damaged, or there is no file
    EXIT_USAGE = 2,  // the options cannot be carried out
};

}  // namespace CameraHost
