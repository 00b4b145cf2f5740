#!/usr/bin/env bash
# Proves that scripts/setup.sh installs every Debian package the build uses.
#
# A machine that has been used before may hold packages nobody asked
# scripts/setup.sh for, so a green build there can hide a forgotten one. This
# finds the files the build really touches:
#   1. a fresh CMake configure in a scratch folder, traced with strace: the
#      package files find_package reads and every file they check for (such
#      as the programs an imported package refers to), the tools CMake looks
#      up, the compilers of its test builds;
#   2. the headers in the compiler's dependency files of BUILD_DIR;
#   3. the shared libraries that the programs and libraries in BUILD_DIR load;
# and asks dpkg which package owns each. Every owner must be installed by
# scripts/setup.sh (its packages with their dependencies, without
# recommends, as it installs them) or belong to the base system (essential
# and required packages with their dependencies). A header, a library or a
# program that no package owns (in /usr/local, /opt or a home folder, say) is
# missing on a fresh machine too.
#
#   scripts/check-setup.sh [BUILD_DIR [CONFIGURE_OPTION...]]
#
# BUILD_DIR defaults to build/; the configure options (compiler, sanitizers)
# should be those BUILD_DIR was configured with. Takes a few seconds.
# Exit codes: 0 every package is accounted for, 1 something is missing,
# 2 the check could not run, 77 tracing is not permitted here (not checked).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${1:-$root/build}")
shift || true

say() { echo "check-setup: $*" >&2; }
die() { say "$*"; exit 2; }

command -v strace >/dev/null || { say "strace is not installed (scripts/setup.sh installs it)"; exit 1; }
strace -qq -e trace=none true 2>/dev/null || { say "tracing is not permitted here: not checked"; exit 77; }
[ -d "$build" ] || die "no build folder $build: build first (scripts/build.sh)"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Every installed package, one line each: name, essential, priority,
# pre-depends, depends, provides.
installed_packages() {
  dpkg-query -W -f='${db:Status-Status}\t${Package}\t${Essential}\t${Priority}\t${Pre-Depends}\t${Depends}\t${Provides}\n' |
    awk -F'\t' '$1 == "installed"' | cut -f2-
}

# The packages a fresh machine has after scripts/setup.sh: the base system
# and setup.sh's packages, each with every package it depends on. Among
# alternatives ("a | b") the first one installed here counts, as apt takes
# the first one it can. Fails naming setup.sh's packages that are not
# installed (what they bring cannot be known then).
allowed_packages() {
  awk -F'\t' '
    function bare(name) { sub(/^[ \t]+/, "", name); sub(/[ \t(].*$/, "", name); sub(/:.*$/, "", name); return name }
    function visit(p,    groups, n, i, alternatives, k, a, name) {
      if (p in allowed) return
      allowed[p] = 1
      n = split(deps[p], groups, ",")
      for (i = 1; i <= n; ++i) {
        k = split(groups[i], alternatives, "|")
        for (a = 1; a <= k; ++a) {
          name = bare(alternatives[a])
          if (name in deps) { visit(name); break }
          if (name in providers) { visit(providers[name]); break }
        }
      }
    }
    FILENAME == ARGV[1] { wanted[$1] = 1; next }
    {
      deps[$1] = $4 ", " $5
      if ($2 == "yes" || $3 == "required") base[$1] = 1
      n = split($6, provided, ",")
      for (i = 1; i <= n; ++i) if (!(bare(provided[i]) in providers)) providers[bare(provided[i])] = $1
    }
    END {
      for (p in wanted) if (!(p in deps)) missing = missing " " p
      if (missing != "") { print "check-setup: not installed here:" missing > "/dev/stderr"; exit 1 }
      for (p in base) visit(p)
      for (p in wanted) visit(p)
      for (p in allowed) print p
    }' "$1" "$2"
}

# Files a fresh configure touches, as "path<TAB>how": "used" for the
# programs it runs, "seen" for files it opens or checks for.
configure_files() {
  local log=$scratch/trace
  if ! strace -f -ff -qq -s 4096 -e trace=%file -o "$log" \
      cmake -S "$root" -B "$scratch/build" "$@" >"$scratch/configure.log" 2>&1; then
    say "a fresh configure fails on this machine:"
    tail -n 20 "$scratch/configure.log" >&2
    exit 1
  fi
  cat "$log".* | grep -v '= -1 E' | awk '{
    how = $0 ~ /^execve\(/ ? "used" : "seen"
    while (match($0, /"\/[^"]*"/)) {
      print substr($0, RSTART + 1, RLENGTH - 2) "\t" how
      $0 = substr($0, RSTART + RLENGTH)
    }
  }'
}

# System headers named in the compiler's dependency files of the build (kept
# beside the objects by Makefiles, in ninja's log by Ninja).
depfile_headers() {
  {
    find "$build" -name '*.d' -type f -exec cat {} +
    if [ -f "$build/build.ninja" ]; then ninja -C "$build" -t deps; fi
  } | tr ' \\' '\n\n' | awk '/^\// && !/:$/ { print $0 "\tused" }'
}

# Shared libraries (and the program interpreter) the build's ELF files load.
loaded_libraries() {
  find "$build" -type f \( -perm -u+x -o -name '*.so*' \) -print0 |
    while IFS= read -r -d '' file; do
      if [ "$(head -c 4 "$file" | tr -d '\0')" = $'\x7fELF' ]; then ldd "$file" 2>/dev/null || true; fi
    done | awk '$2 == "=>" && $3 ~ /^\// { print $3 "\tused" } $1 ~ /^\// { print $1 "\tused" }'
}

# Regular files outside what the project makes itself, each once, "used"
# winning over "seen". Locale data is left out: programs read it for the
# user's language when it is there and run as well without it.
touched_files() {
  grep -v -e "^$root/" -e "^$build/" -e "^$scratch/" -e '^/proc/' -e '^/sys/' -e '^/dev/' -e '^/tmp/' -e '^/run/' \
    -e '^/usr/share/locale/' -e '^/usr/lib/locale/' |
    awk -F'\t' '!($1 in how) || $2 == "used" { how[$1] = $2 } END { for (f in how) print f "\t" how[f] }' | sort |
    while IFS=$'\t' read -r file how; do
      if [ -f "$file" ]; then printf '%s\t%s\n' "$file" "$how"; fi
    done
}

# "path<TAB>how<TAB>owners" for every touched file; owners is empty when dpkg
# owns none of its names (the path, its resolved path, and each with /usr
# added or dropped, since /lib and /bin are links into /usr on Debian 12).
with_owners() {
  cut -f1 "$1" | xargs -d '\n' -r realpath -m -- | paste "$1" - >"$scratch/resolved"
  awk -F'\t' '
    function alias(name, path,    other) {
      names[name] = names[name] SUBSEP path
      other = name ~ /^\/usr\// ? substr(name, 5) : "/usr" name
      names[other] = names[other] SUBSEP path
    }
    FILENAME == ARGV[1] { order[++count] = $1; how[$1] = $2; alias($1, $1); alias($3, $1); next }
    ($0 in names) {
      package = FILENAME; sub(/^.*\//, "", package); sub(/(:[^.]*)?\.list$/, "", package)
      n = split(names[$0], paths, SUBSEP)
      for (i = 2; i <= n; ++i) owner[paths[i]] = owner[paths[i]] " " package
    }
    END { for (i = 1; i <= count; ++i) print order[i] "\t" how[order[i]] "\t" substr(owner[order[i]], 2) }
  ' "$scratch/resolved" /var/lib/dpkg/info/*.list
}

# One line per missing package (with a file that needs it), and per header,
# library or program the build uses that no package owns. Files nobody owns
# in /etc and /var are generated on every machine (caches, alternatives).
missing_packages() {
  awk -F'\t' '
    FILENAME == ARGV[1] { allowed[$1] = 1; next }
    $3 == "" {
      if ($2 == "used" && $1 !~ /^\/(etc|var)\//)
        print "  no Debian package has " $1
      next
    }
    {
      n = split($3, owners, " ")
      for (i = 1; i <= n; ++i) if (owners[i] in allowed) next
      if (!(owners[1] in reported)) { reported[owners[1]] = 1; print "  " owners[1] " (for " $1 ")" }
    }' "$1" "$2"
}

bash "$root/scripts/setup.sh" --list >"$scratch/wanted"
installed_packages >"$scratch/installed"
allowed_packages "$scratch/wanted" "$scratch/installed" >"$scratch/allowed" ||
  die "run scripts/setup.sh first: what its packages bring is known only once they are installed"

depfile_headers >"$scratch/headers"
[ -s "$scratch/headers" ] || die "no compiler dependency files in $build: build it first (scripts/build.sh)"
{
  configure_files "$@"
  cat "$scratch/headers"
  loaded_libraries
} | touched_files >"$scratch/files"
with_owners "$scratch/files" >"$scratch/owners"
report=$(missing_packages "$scratch/allowed" "$scratch/owners")

if [ -n "$report" ]; then
  say "the build uses what scripts/setup.sh does not install on a fresh machine:"
  printf '%s\n' "$report" >&2
  exit 1
fi
echo "check-setup: scripts/setup.sh and the base system provide all $(wc -l <"$scratch/files") files the build touches"
