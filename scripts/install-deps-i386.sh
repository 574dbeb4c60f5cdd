#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prepares the 32-bit x86 build: see install-deps-cross.sh.
# Usage: scripts/install-deps-i386.sh [deps-dir]   (default: build/i386-deps)
exec bash "$(dirname "$0")/install-deps-cross.sh" i386 "$@"
