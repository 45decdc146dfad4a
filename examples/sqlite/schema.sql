-- What load.py makes of archives. Names are BLOBs, because a TEXT has to be UTF-8.

-- Of a new database. Rows with paths in them fill small pages badly, and a load takes a fifth longer.
PRAGMA page_size = 16384;

CREATE TABLE IF NOT EXISTS server (server INTEGER PRIMARY KEY, name BLOB NOT NULL UNIQUE);
CREATE TABLE IF NOT EXISTS client (client INTEGER PRIMARY KEY, name BLOB NOT NULL UNIQUE);
CREATE TABLE IF NOT EXISTS policy (policy INTEGER PRIMARY KEY, name BLOB NOT NULL UNIQUE);
CREATE TABLE IF NOT EXISTS schedule (
    schedule INTEGER PRIMARY KEY,
    name BLOB NOT NULL UNIQUE,
    -- Nothing but its name tells whether a backup is a full one: change this to your names.
    is_full INTEGER AS (CAST(name AS TEXT) LIKE '%full%'));

CREATE TABLE IF NOT EXISTS image (
    image INTEGER PRIMARY KEY,
    server INTEGER NOT NULL REFERENCES server,
    client INTEGER NOT NULL REFERENCES client,
    policy INTEGER NOT NULL REFERENCES policy,
    schedule INTEGER NOT NULL REFERENCES schedule,
    backup_id BLOB NOT NULL,
    backup_time INTEGER NOT NULL,       -- seconds since 1970
    sha256 TEXT NOT NULL,               -- of the document
    entries INTEGER NOT NULL,
    bytes INTEGER NOT NULL,             -- the sum of their "length"
    UNIQUE (server, backup_id));

CREATE TABLE IF NOT EXISTS backup_set (
    backup_set INTEGER PRIMARY KEY,
    server INTEGER NOT NULL REFERENCES server,
    client INTEGER NOT NULL REFERENCES client,
    policy INTEGER NOT NULL REFERENCES policy,
    schedule INTEGER NOT NULL REFERENCES schedule,
    backup_id BLOB NOT NULL,
    create_time INTEGER NOT NULL,       -- seconds since 1970
    size_bytes INTEGER NOT NULL);       -- from 2^63 on a REAL

CREATE TABLE IF NOT EXISTS member (
    backup_set INTEGER NOT NULL REFERENCES backup_set,
    image INTEGER NOT NULL REFERENCES image,
    PRIMARY KEY (backup_set, image)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS member_image ON member (image);

-- Each column from "length" on has the name of a column of `quillmere-archive entries` and is loaded
-- from there: to have more of them, add more here before the first load, as BLOB.
CREATE TABLE IF NOT EXISTS file (
    image INTEGER NOT NULL REFERENCES image,
    number INTEGER NOT NULL,            -- of the entry in its image
    length INTEGER NOT NULL,
    path BLOB NOT NULL,
    PRIMARY KEY (image, number)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS file_path ON file (path, length);

-- For people and questions: rows with names in place of numbers.
CREATE VIEW IF NOT EXISTS named_image AS
SELECT image, server.name AS server, client.name AS client, policy.name AS policy,
       schedule.name AS schedule, is_full, backup_id, backup_time, entries, bytes
FROM image JOIN server USING (server) JOIN client USING (client) JOIN policy USING (policy)
    JOIN schedule USING (schedule);

CREATE VIEW IF NOT EXISTS named_set AS
SELECT backup_set, server.name AS server, client.name AS client, policy.name AS policy,
       schedule.name AS schedule, is_full, backup_id, create_time, size_bytes
FROM backup_set JOIN server USING (server) JOIN client USING (client) JOIN policy USING (policy)
    JOIN schedule USING (schedule);

-- Of each client and policy.
CREATE VIEW IF NOT EXISTS newest_full_set AS
SELECT * FROM (
    SELECT *, row_number() OVER (PARTITION BY server, client, policy
                                 ORDER BY create_time DESC, backup_id DESC) AS place
    FROM named_set
    WHERE is_full)
WHERE place = 1;
