-- SPDX-License-Identifier: Apache-2.0
-- The widget database; `zelmar-widgets init` creates it. By hand, unless there is one:
--     [ -e /opt/usr/zelmar/widgets.db ] ||
--         sqlite3 -bail -cmd '.dbconfig no_ckpt_on_close on' /opt/usr/zelmar/widgets.db < widget_db.sql > /dev/null
-- The setting leaves the write-ahead log in place when the database is closed. Every connection that may be the last one
-- needs it: who may only read the database cannot open it without its log.

-- A change writes whole pages to the log, so small pages make a run write less.
PRAGMA page_size = 512;
PRAGMA journal_mode = WAL;

BEGIN;

CREATE TABLE widget (
    handle INTEGER PRIMARY KEY CHECK (handle BETWEEN 0 AND 2147483647),
    tizen_app_id TEXT NOT NULL UNIQUE,
    kx_app_id TEXT UNIQUE                     -- NULL: has none; it becomes part of file names
        CHECK (instr(kx_app_id, '/') = 0 AND instr(kx_app_id, char(0)) = 0),
    installed_on_usb INTEGER NOT NULL DEFAULT 0 CHECK (installed_on_usb IN (0, 1)),
    available INTEGER NOT NULL DEFAULT 0 CHECK (available IN (0, 1)),
    external_storage_path TEXT                -- NULL: never set; '': cleared
);

PRAGMA application_id = 0x5a4b5857;
PRAGMA user_version = 1;  -- of this schema

COMMIT;
