-- What ask.py asks the database that load.py makes.

--- holders PATH BEFORE: who holds this path, and in which newest backup set, made before that time
SELECT datetime(create_time, 'unixepoch') AS set_time, server, client, policy, schedule,
       backup_id, length
FROM (
    SELECT create_time, named_set.server, named_set.client, named_set.policy, named_set.schedule,
           image.backup_id, length,
           row_number() OVER (
               PARTITION BY named_set.server, named_set.client
               ORDER BY create_time DESC, named_set.policy, named_set.schedule,
                        image.backup_id DESC, length DESC) AS place
    FROM file JOIN member USING (image) JOIN named_set USING (backup_set) JOIN image USING (image)
    WHERE path = :path AND create_time < :before)
WHERE place = 1
ORDER BY create_time DESC, server, client;

--- versions PATH: every image that holds this path, the newest first
SELECT datetime(backup_time, 'unixepoch') AS backup_time, server, client, policy, schedule,
       backup_id, length
FROM file JOIN named_image USING (image)
WHERE path = :path
ORDER BY named_image.backup_time DESC, server, client, backup_id, length;

--- largest-files COUNT: in the newest full set of each client and policy
SELECT length, server, client, policy, path
FROM newest_full_set JOIN member USING (backup_set) JOIN file USING (image)
ORDER BY length DESC, server, client, policy, path
LIMIT :count;

--- largest-folders DEPTH COUNT: folders so many names deep, with all that is below, likewise
SELECT sum(length) AS bytes, count(*) AS files, server, client, policy,
       folder(path, :depth) AS folder
FROM newest_full_set JOIN member USING (backup_set) JOIN file USING (image)
GROUP BY server, client, policy, folder(path, :depth)
ORDER BY bytes DESC, server, client, policy, folder
LIMIT :count;

--- growth: what was backed up of each client in each week, full and incremental
SELECT date(backup_time, 'unixepoch', '-6 days', 'weekday 1') AS monday, server, client,
       sum(iif(is_full, entries, 0)) AS full_files, sum(iif(is_full, bytes, 0)) AS full_bytes,
       sum(iif(is_full, 0, entries)) AS incremental_files,
       sum(iif(is_full, 0, bytes)) AS incremental_bytes
FROM named_image
GROUP BY monday, server, client
ORDER BY monday, server, client;

--- left SERVER CLIENT POLICY BEFORE: what the newest full set before that time lacks of the one before
WITH full_set AS (
    SELECT backup_set, row_number() OVER (ORDER BY create_time DESC, backup_id DESC) AS place
    FROM named_set
    WHERE is_full AND server = :server AND client = :client AND policy = :policy
        AND create_time < :before),
content AS (
    SELECT place, path, length
    FROM full_set JOIN member USING (backup_set) JOIN file USING (image)
    WHERE place <= 2)
SELECT DISTINCT path, length
FROM content
WHERE place = 2 AND path NOT IN (SELECT path FROM content WHERE place = 1)
ORDER BY path, length;

--- nights FROM TO: nights without a set, since the first one of the client and policy; noon to noon
WITH RECURSIVE night (number) AS (
    SELECT :from / 86400
    UNION ALL
    SELECT number + 1 FROM night WHERE number < :to / 86400),
held AS (SELECT DISTINCT server, client, policy, (create_time - 43200) / 86400 AS number
         FROM named_set),
series AS (SELECT server, client, policy, min(number) AS first
           FROM held GROUP BY server, client, policy)
SELECT date(number * 86400, 'unixepoch') AS night, server, client, policy
FROM night JOIN series ON number >= first
WHERE (server, client, policy, number) NOT IN (SELECT server, client, policy, number FROM held)
ORDER BY number, server, client, policy;

--- spread LENGTH COUNT: files of at least this length that most servers hold
SELECT count(DISTINCT image.server) AS servers, length, path
FROM file JOIN image USING (image)
WHERE length >= :length
GROUP BY path, length
HAVING servers > 1
ORDER BY servers DESC, length DESC, path
LIMIT :count;
