# Shared by the scripts: install what is missing and build the tree. Source it, then call
#   hue_bootstrap                       scripts/bootstrap (Debian packages, npm sources)
#   hue_build DIR [CMAKE-OPTIONS...]    configure (Ninja) and build DIR from the repository
#                                       (only the targets in $HUE_BUILD_TARGETS when it is set)
# $repo must name the repository root. Under CI (CI=true) compiler warnings are errors.

hue_bootstrap() {
    "$repo/scripts/bootstrap"
}

hue_build() {
    local build=$1
    shift
    local options=("$@")
    if [ "${CI:-}" = "true" ]; then
        options+=(-DHUE_WERROR=ON)
    fi
    cmake -S "$repo" -B "$build" -G Ninja "${options[@]}"
    local targets=()
    if [ -n "${HUE_BUILD_TARGETS:-}" ]; then
        local names
        read -r -a names <<<"$HUE_BUILD_TARGETS"
        targets=(--target "${names[@]}")
    fi
    cmake --build "$build" --parallel "$(nproc)" "${targets[@]}"
}
