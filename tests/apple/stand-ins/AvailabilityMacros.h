// A stand-in, see README.md in this folder.
#pragma once
