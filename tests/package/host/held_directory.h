#pragma once

using HeldDirectory = const char*;
