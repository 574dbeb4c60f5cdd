#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prepares the 32-bit ARM build: see install-deps-cross.sh.
# Usage: scripts/install-deps-armhf.sh [deps-dir]   (default: build/armhf-deps)
exec bash "$(dirname "$0")/install-deps-cross.sh" armhf "$@"
