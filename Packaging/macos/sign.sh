#!/bin/sh
# Usage: sign.sh BUNDLE [ENTITLEMENTS]
#
# Signs a bundle with the identity in CORVID_SIGNING_IDENTITY, as codesign(1) takes it; without
# one, ad hoc, which runs on this machine only and in no application group.

set -eu

bundle=$1
entitlements=${2-}
identity=${CORVID_SIGNING_IDENTITY:--}

set -- --force --sign "$identity"
if [ "$identity" != - ]; then
    set -- "$@" --options runtime --timestamp
fi
if [ -n "$entitlements" ]; then
    set -- "$@" --entitlements "$entitlements"
fi
exec codesign "$@" "$bundle"
