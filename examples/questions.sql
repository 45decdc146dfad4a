-- Asks a database that load_sqlite.py has filled: sqlite3 -readonly DATABASE <questions.sql
.bail on
.mode tabs
.headers on

.print == The largest files of the newest set
SELECT length, CAST(path AS TEXT) AS path  -- as TEXT, its bytes are printed as they are
FROM file JOIN image USING (image)
WHERE create_time = (SELECT max(create_time) FROM backup_set)
ORDER BY length DESC, file.path
LIMIT 10;

.print
.print == Growth from set to set
WITH content AS (
    SELECT create_time, size, count(path) AS files, ifnull(sum(length), 0) AS length
    FROM backup_set JOIN image USING (create_time) LEFT JOIN file USING (image)
    GROUP BY create_time)
SELECT create_time, datetime(create_time, 'unixepoch') AS utc, size, files, length,
       length - lag(length) OVER (ORDER BY create_time) AS growth
FROM content
ORDER BY create_time;

.print
.print == Files of the set before the newest one that are not in the newest one
WITH content AS (
    SELECT path, dense_rank() OVER (ORDER BY create_time DESC) AS place
    FROM backup_set JOIN image USING (create_time) LEFT JOIN file USING (image))
SELECT CAST(path AS TEXT) AS path
FROM (SELECT path FROM content WHERE place = 2 EXCEPT SELECT path FROM content WHERE place = 1)
WHERE path IS NOT NULL
ORDER BY 1;
