// The cable category the user picks for the length estimate.
#pragma once

enum CableCategory : int {
    Cat5e = 0,
    Cat6 = 1,
    Cat6a = 2,
};
