# shellcheck shell=bash
# What scripts/test and scripts/quickstart have in common on a Mac, whose bash is 3.2. To be read in by
# a script that is in the project's folder and says in `name` what it is called.

readonly build=build/release
readonly ctl=$build/Sources/tervainctl/tervainctl

give_up() {
  echo "${name:?}: $*" >&2
  exit 1
}

# Homebrew's packages, those that are missing; Apple's compiler comes with the command line tools.
install_dependencies() {
  local package missing=()
  xcode-select -p >/dev/null 2>&1 ||
    give_up "there is no compiler: run \"xcode-select --install\" first"
  command -v brew >/dev/null || give_up "Homebrew is missing: see https://brew.sh"
  for package in cmake ninja nlohmann-json cli11 utf8proc jpeg-turbo googletest; do
    brew list --formula "$package" >/dev/null 2>&1 || missing+=("$package")
  done
  [[ ${#missing[@]} -eq 0 ]] || HOMEBREW_NO_INSTALL_UPGRADE=1 brew install "${missing[@]}"
}

# Configures, with further options, and builds the targets in the variable `targets`, or all.
build_programs() {
  CC=/usr/bin/cc CXX=/usr/bin/c++ cmake --preset release -DCMAKE_PREFIX_PATH="$(brew --prefix)" \
    -DTERVAIN_BENCHMARKS=OFF "$@" >/dev/null
  cmake --build --preset release ${targets:+--target $targets} -- --quiet
}

# Starts an agent on a Unix socket, in a folder of its own, and ends it with the script. A command for
# which there is no agent shell is run by the system's.
start_agent() {
  folder=$(mktemp -d "${TMPDIR:-/tmp}/tervain.XXXXXX")
  export TERVAIN_AGENT=unix:$folder/agent.sock
  TERVAIN_DULK_DISABLE=1 "$build/Tools/serve-unix" "$folder/agent.sock" \
    "$build/Sources/TervainVMAgent/TervainVMAgent" 2>"$folder/agent.log" &
  agent=$!
  trap end_agent EXIT
  until [[ -S $folder/agent.sock ]]; do
    kill -0 "$agent" 2>/dev/null || give_up "the agent does not start: $(cat "$folder/agent.log")"
    sleep 0.05
  done
}

end_agent() {
  kill "$agent" 2>/dev/null || true
  wait "$agent" 2>/dev/null || true
  rm -rf "$folder"
}

# Says a line for each privacy grant of the names that are given which the agent does not have, and
# what needs it. The system asks for the program that a person has started, so it is the terminal's.
missing_grants() {
  local reply grant place purpose
  reply=$(echo '{"op":"ping"}' | "$ctl" raw)
  for grant in "$@"; do
    case $grant in
      accessibility) place=Accessibility purpose="trees of elements and their actions" ;;
      postEvent) place=Accessibility purpose="pointer and keyboard" ;;
      screenRecording) place="Screen & System Audio Recording" purpose=pictures ;;
    esac
    grep -q "\"$grant\":true" <<<"$reply" ||
      echo "$purpose: no grant; System Settings > Privacy & Security > $place, for this terminal"
  done
}
