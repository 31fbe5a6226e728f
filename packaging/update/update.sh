#!/bin/bash
# Replaces an installed Nulo by a new version and starts it again. A service offers it as
# /update.sh; see the README.md beside it.
#
#   bash update.sh WORKING_FOLDER ARCHIVE VERSION
#
# WORKING_FOLDER  nulo-update-…, private to the user; holds this script and the archive. Removed at
#                 the end, whatever happens.
# ARCHIVE         a zip file with either one nulo_….deb, or the tree of `cmake --install`
#                 (bin/nulo and the rest), at its top or in one folder.
# VERSION         the new version, for the log.
#
# Nulo says two things more by the environment:
# NULO_PID         the process that is about to end
# NULO_EXECUTABLE  the program that it runs: what is replaced and started again
#
# Whenever something fails, the installed version stays, or is put back, and is started again. There
# is no terminal: what happens is in ~/Library/Logs/nulo/update.log.
set -u

seconds_to_wait_for_the_end=60
seconds_a_new_version_must_live=3

say() { printf '%s %s\n' "$(date '+%F %T')" "$*"; }

# The only way out when something is wrong.
fail() {
  say "FAILED: $*"
  put_back
  is_running || start
  command -v notify-send >/dev/null &&
    notify-send Nulo "La mise a jour a echoue. L'ancienne version reste installee." || true
  exit 1
}

is_running() {
  local program
  [ -n "$pid" ] && program=$(readlink "/proc/$pid/exe") && [ "${program% (deleted)}" = "$nulo" ]
}

wait_for_the_end() {
  local tenths=$((seconds_to_wait_for_the_end * 10))
  while is_running; do
    ((tenths-- > 0)) || fail "Nulo (process $pid) did not end within $seconds_to_wait_for_the_end s"
    sleep 0.1
  done
}

start() {
  say "starting $nulo"
  # In a session of its own, so that it does not end with this script.
  setsid -- "$nulo" </dev/null >/dev/null 2>&1 &
  pid=$!
}

# --- the archive ---------------------------------------------------------------------------------

unpack() {
  mkdir "$work/new" || fail "no folder to unpack into"
  if command -v unzip >/dev/null; then
    unzip -q "$archive" -d "$work/new" || fail "the archive is damaged or no zip file"
  elif command -v bsdtar >/dev/null; then
    bsdtar -xf "$archive" -C "$work/new" || fail "the archive is damaged or no zip file"
  else
    fail "neither unzip nor bsdtar is installed"
  fi
  # Links could lead what follows out of the folder.
  [ -z "$(find "$work/new" ! -type f ! -type d -print -quit)" ] ||
    fail "the archive holds something other than files and folders"
}

# Sums in the archive find a fault of the one who made it; those of the way are https's to find.
check_sums() {
  local folder=$1
  [ -f "$folder/SHA256SUMS" ] || return 0
  (cd "$folder" && sha256sum --check --quiet --strict SHA256SUMS) || fail "a file is not as it was made"
  rm "$folder/SHA256SUMS"
}

# --- a Debian package ----------------------------------------------------------------------------

install_package() {
  local package=$1
  dpkg -S "$nulo" >/dev/null 2>&1 || fail "the archive is a package, but $nulo is of none"
  [ "$(dpkg-deb --field "$package" Package)" = nulo ] || fail "the package is not Nulo's"
  # Asks for the password in a window. What apt-get cannot unpack it leaves as it was.
  pkexec apt-get install --yes --no-remove "$package" || fail "the package was not installed"
}

# --- a tree of cmake --install -------------------------------------------------------------------

files=()     # of the new version, relative to its root and to the installation's
replaced=()  # those that are in their place already

install_tree() {
  local tree=$1 prefix file
  ! dpkg -S "$nulo" >/dev/null 2>&1 || fail "$nulo belongs to a package; it takes a package"
  prefix=$(dirname "$(dirname "$nulo")")
  check_sums "$tree"
  [ -x "$tree/bin/nulo" ] || fail "bin/nulo cannot be executed"
  ! ldd "$tree/bin/nulo" 2>/dev/null | grep 'not found' || fail "a library is missing"
  mapfile -d '' -t files < <(cd "$tree" && find . -type f -printf '%P\0')

  # Everything that can take long or fail, a full disk say, while the old files are in place …
  for file in "${files[@]}"; do
    [ ! -d "$prefix/$file" ] || fail "$prefix/$file is a folder"
    mkdir -p "$(dirname "$prefix/$file")" &&
      cp --preserve=mode "$tree/$file" "$prefix/$file.nulo-new" || fail "$prefix/$file: not copied"
  done
  # … then one rename a file, which leaves either the old or the new one there, whole.
  for file in "${files[@]}"; do
    replaced+=("$file")
    if [ -e "$prefix/$file" ]; then
      ln -f "$prefix/$file" "$prefix/$file.nulo-old" || fail "$prefix/$file: not kept"
    fi
    mv -fT "$prefix/$file.nulo-new" "$prefix/$file" || fail "$prefix/$file: not replaced"
  done
}

put_back() {
  local file prefix
  prefix=$(dirname "$(dirname "$nulo")")
  for file in "${replaced[@]}"; do
    if [ -e "$prefix/$file.nulo-old" ]; then
      mv -fT "$prefix/$file.nulo-old" "$prefix/$file"
    elif [ ! -e "$prefix/$file.nulo-new" ]; then
      rm -f "$prefix/$file"  # there was none before
    fi
  done
  for file in "${files[@]}"; do
    rm -f "$prefix/$file.nulo-new"
  done
  replaced=()
  files=()
}

forget_old_files() {
  local file prefix
  prefix=$(dirname "$(dirname "$nulo")")
  for file in "${replaced[@]}"; do
    rm -f "$prefix/$file.nulo-old"
  done
}

# -------------------------------------------------------------------------------------------------

# All in a function, which is read as a whole before it runs: the file goes with its folder.
main() {
  work=$1 archive=$2 version=$3
  pid=${NULO_PID:-}
  nulo=${NULO_EXECUTABLE:-$(command -v nulo)}
  nulo=${nulo% (deleted)}
  unset NULO_PID NULO_EXECUTABLE
  case ${work##*/} in nulo-update-*) ;; *) exit 2 ;; esac  # it will be removed
  trap 'rm -rf -- "$work"' EXIT

  umask 077
  mkdir -p "$HOME/Library/Logs/nulo" && exec >>"$HOME/Library/Logs/nulo/update.log" 2>&1
  umask 022  # what is installed is for everybody
  cd / || exit 1
  say "updating $nulo to $version"

  wait_for_the_end
  unpack
  local packages=("$work"/new/*.deb) programs
  mapfile -t programs < <(find "$work/new" -maxdepth 3 -path '*/bin/nulo' -type f)
  if [ "${#packages[@]}" -eq 1 ] && [ -f "${packages[0]}" ]; then
    check_sums "$work/new"
    install_package "${packages[0]}"
  elif [ "${#programs[@]}" -eq 1 ]; then
    install_tree "${programs[0]%/bin/nulo}"
  else
    fail "the archive holds neither one package nor one tree with bin/nulo"
  fi

  start
  sleep "$seconds_a_new_version_must_live"
  if ! kill -0 "$pid" 2>/dev/null && ! wait "$pid"; then
    fail "the new version does not start"
  fi
  forget_old_files
  say "done"
}

main "$@"
exit
