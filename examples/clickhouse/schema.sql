-- What a shard holds (the tables _here) and what all of them hold (the others): to be run on each,
-- clickhouse-client --multiquery <schema.sql. Any of these statements can be run again.

CREATE DATABASE IF NOT EXISTS quillmere;

-- The file entries of each load. Those of a load count while an image has its number.
CREATE TABLE IF NOT EXISTS quillmere.file_here (
    load UInt64,
    day Date,               -- of the backup
    length UInt64,
    path String
) ENGINE = MergeTree PARTITION BY toYYYYMM(day) ORDER BY (path, load);

-- Loads that were begun, so that what became of none of them can be found and cleared.
CREATE TABLE IF NOT EXISTS quillmere.begun_here (
    load UInt64,
    begun DateTime
) ENGINE = MergeTree ORDER BY load;

-- An image is here once all of its entries are. Nothing but the name of its schedule tells whether a
-- backup is a full one: change that to your names before the first load.
CREATE TABLE IF NOT EXISTS quillmere.image_here (
    load UInt64,
    server String,
    client String,
    policy String,
    schedule String,
    backup_id String,
    backup_time Int64,      -- seconds since 1970
    sha256 String,          -- of the document
    entries UInt64,
    bytes UInt64,           -- the sum of their lengths
    is_full UInt8 DEFAULT positionCaseInsensitive(schedule, 'full') > 0
) ENGINE = MergeTree PARTITION BY server ORDER BY load;

CREATE TABLE IF NOT EXISTS quillmere.backup_set_here (
    server String,
    client String,
    policy String,
    schedule String,
    backup_id String,
    create_time Int64,      -- seconds since 1970
    size_bytes UInt64,
    images Array(String),   -- backup ids of the members
    loads Array(UInt64),    -- and their loads
    is_full UInt8 DEFAULT positionCaseInsensitive(schedule, 'full') > 0
) ENGINE = MergeTree PARTITION BY server ORDER BY (client, policy, schedule, create_time);

-- Where the next images and sets of a server are put together, to take the place of the present ones
-- in one step.
CREATE TABLE IF NOT EXISTS quillmere.image_next AS quillmere.image_here
ENGINE = MergeTree PARTITION BY server ORDER BY load;
CREATE TABLE IF NOT EXISTS quillmere.backup_set_next AS quillmere.backup_set_here
ENGINE = MergeTree PARTITION BY server ORDER BY (client, policy, schedule, create_time);

-- The members of the newest full set of each client and policy.
CREATE VIEW IF NOT EXISTS quillmere.newest_full_here AS
SELECT server, client, policy, schedule, create_time, load
FROM (
    SELECT server, client, policy, schedule, create_time, loads
    FROM quillmere.backup_set_here
    WHERE is_full
    ORDER BY create_time DESC, backup_id DESC
    LIMIT 1 BY server, client, policy
) ARRAY JOIN loads AS load;

-- All of a server is on one shard, so shards join by themselves, with their tables _here.
CREATE TABLE IF NOT EXISTS quillmere.file AS quillmere.file_here
ENGINE = Distributed(quillmere, quillmere, file_here);
CREATE TABLE IF NOT EXISTS quillmere.image AS quillmere.image_here
ENGINE = Distributed(quillmere, quillmere, image_here);
CREATE TABLE IF NOT EXISTS quillmere.backup_set AS quillmere.backup_set_here
ENGINE = Distributed(quillmere, quillmere, backup_set_here);
