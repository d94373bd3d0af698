// Code that is loaded while the program runs.
#pragma once

void ShowModules();
