# A throwaway PostgreSQL server holding the extension, for the tests and the
# benchmark (sourced):
#
#   start_server BINDIR PKGLIBDIR SHAREDIR EXTENSION MODULE FILES
#
# BINDIR, PKGLIBDIR, SHAREDIR: pg_config's; EXTENSION, MODULE: txscan.so and
# txscanmd.so; FILES: the directory holding txscan.control and the install
# script. It makes $work (a scratch directory, removed with everything in it
# when the shell exits, on failure too), a private installation in it, a
# cluster on a Unix socket there with no TCP port, and exports PGHOST and
# PGUSER for psql. Files the server is to read go into $work before it starts
# (as root, start_server hands $work to the postgres user).

work=$(mktemp -d "${TMPDIR:-/tmp}/txscan-pg.XXXXXX")
# The server refuses to run as root; as root it runs as the postgres system
# user (as pg_virtualenv does), who then owns the whole scratch directory.
as_server() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }
stop_server() {
    if [ -f "$work/data/postmaster.pid" ]; then
        as_server "$work/install$server_bindir/pg_ctl" -D "$work/data" -m immediate -w stop >/dev/null 2>&1 || true
    fi
    rm -rf "$work"
}
trap stop_server EXIT

start_server() {
    local bindir=$1 pkglibdir=$2 sharedir=$3 extension=$4 module=$5 files=$6 inst=$work/install
    server_bindir=$bindir
    # A private installation: the server finds its share and library
    # directories relative to its own binary, so copies of the binaries
    # beside links to the system's files make an installation that holds the
    # extension without writing into the system's directories (and as any user).
    mkdir -p "$inst$bindir" "$inst$pkglibdir" "$inst$sharedir/extension"
    cp "$bindir/postgres" "$bindir/initdb" "$bindir/pg_ctl" "$inst$bindir/"
    for f in "$pkglibdir"/*; do ln -s "$f" "$inst$pkglibdir/"; done
    for f in "$sharedir"/*; do [ "${f##*/}" = extension ] || ln -s "$f" "$inst$sharedir/"; done
    for f in "$sharedir"/extension/*; do ln -s "$f" "$inst$sharedir/extension/"; done
    cp "$extension" "$module" "$inst$pkglibdir/"
    cp "$files/txscan.control" "$files/txscan--1.0.sql" "$inst$sharedir/extension/"

    mkdir -p "$work/sock"
    if [ "$(id -u)" = 0 ]; then chown -R postgres: "$work"; fi
    as_server "$inst$bindir/initdb" -D "$work/data" -E UTF8 --no-locale -A trust -U postgres >"$work/initdb.log" 2>&1 ||
        { cat "$work/initdb.log"; return 1; }
    as_server "$inst$bindir/pg_ctl" -D "$work/data" -l "$work/server.log" -w \
        -o "-c listen_addresses='' -k $work/sock -c fsync=off -c max_worker_processes=8" start >/dev/null ||
        { cat "$work/server.log"; return 1; }
    export PGHOST="$work/sock" PGUSER=postgres
}
