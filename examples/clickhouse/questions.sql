-- What ask.py asks. Any shard can be asked, and all of them are.

--- holders PATH BEFORE: who holds this path, and in which newest backup set, made before that time
SELECT toString(toDateTime(create_time), 'UTC') AS set_time, server, client, policy, schedule,
       backup_id, length
FROM (
    SELECT create_time, server, client, policy, schedule, backup_id, length
    FROM quillmere.file
    ALL INNER JOIN (
        SELECT load, create_time, server, client, policy, schedule, image AS backup_id
        FROM (
            SELECT create_time, server, client, policy, schedule, images, loads
            FROM quillmere.backup_set_here
            WHERE create_time < {before:Int64}
        ) ARRAY JOIN images AS image, loads AS load
        WHERE load IN (SELECT load FROM quillmere.file_here WHERE path = {path:String})
    ) USING load
    WHERE path = {path:String}
)
ORDER BY create_time DESC, server, client, policy, schedule, backup_id DESC, length DESC
LIMIT 1 BY server, client;

--- versions PATH: every image that holds this path, the newest first
SELECT toString(toDateTime(seconds), 'UTC') AS backup_time, server, client, policy, schedule,
       backup_id, length
FROM (
    SELECT seconds, server, client, policy, schedule, backup_id, length
    FROM quillmere.file
    ALL INNER JOIN (
        SELECT load, backup_time AS seconds, server, client, policy, schedule, backup_id
        FROM quillmere.image_here
        WHERE load IN (SELECT load FROM quillmere.file_here WHERE path = {path:String})
    ) USING load
    WHERE path = {path:String}
)
ORDER BY seconds DESC, server, client, backup_id, length;

--- largest-files COUNT: in the newest full set of each client and policy
SELECT length, server, client, policy, path
FROM (
    SELECT length, server, client, policy, path
    FROM quillmere.file
    ALL INNER JOIN (
        SELECT load, server, client, policy FROM quillmere.newest_full_here
    ) USING load
    WHERE load IN (SELECT load FROM quillmere.newest_full_here)
    ORDER BY length DESC, server, client, policy, path
    LIMIT {count:UInt64}
)
ORDER BY length DESC, server, client, policy, path
LIMIT {count:UInt64};

--- largest-folders DEPTH COUNT: folders so many names deep, with all that is below, likewise
SELECT sum(length) AS bytes, count() AS files, server, client, policy,
       arrayStringConcat(arraySlice(arrayPopBack(splitByChar('/', path)), 1, {depth:UInt64} + 1),
                         '/') AS folder
FROM quillmere.file
ALL INNER JOIN (
    SELECT load, server, client, policy FROM quillmere.newest_full_here
) USING load
WHERE load IN (SELECT load FROM quillmere.newest_full_here)
GROUP BY server, client, policy, folder
ORDER BY bytes DESC, server, client, policy, folder
LIMIT {count:UInt64};

--- growth: what was backed up of each client in each week, full and incremental
SELECT toString(toMonday(toDateTime(backup_time), 'UTC')) AS monday, server, client,
       sumIf(entries, is_full) AS full_files, sumIf(bytes, is_full) AS full_bytes,
       sumIf(entries, NOT is_full) AS incremental_files,
       sumIf(bytes, NOT is_full) AS incremental_bytes
FROM quillmere.image
GROUP BY monday, server, client
ORDER BY monday, server, client;

--- left SERVER CLIENT POLICY BEFORE: what the newest full set before that time lacks of the one before
SELECT DISTINCT path, length
FROM quillmere.file
WHERE load IN (
    SELECT arrayJoin(loads) FROM (
        SELECT loads FROM quillmere.backup_set_here
        WHERE is_full AND server = {server:String} AND client = {client:String}
            AND policy = {policy:String} AND create_time < {before:Int64}
        ORDER BY create_time DESC, backup_id DESC
        LIMIT 1, 1))
AND path NOT IN (
    SELECT path FROM quillmere.file_here WHERE load IN (
        SELECT arrayJoin(loads) FROM (
            SELECT loads FROM quillmere.backup_set_here
            WHERE is_full AND server = {server:String} AND client = {client:String}
                AND policy = {policy:String} AND create_time < {before:Int64}
            ORDER BY create_time DESC, backup_id DESC
            LIMIT 1)))
ORDER BY path, length;

--- nights FROM TO: nights without a set, since the first one of the client and policy; noon to noon
SELECT toString(toDate('1970-01-01') + number) AS night, server, client, policy
FROM (
    SELECT server, client, policy, held, first, arrayJoin(
        arrayMap(x -> toInt64(x) + intDiv({from:Int64}, 86400),
                 range(toUInt64(intDiv({to:Int64}, 86400) - intDiv({from:Int64}, 86400) + 1)))
    ) AS number
    FROM (
        SELECT server, client, policy, groupUniqArray(intDiv(create_time - 43200, 86400)) AS held,
               min(intDiv(create_time - 43200, 86400)) AS first
        FROM quillmere.backup_set
        GROUP BY server, client, policy
    )
)
WHERE number >= first AND NOT has(held, number)
ORDER BY number, server, client, policy;

--- spread LENGTH COUNT: files of at least this length that most servers hold
SELECT uniqExact(server) AS servers, length, path
FROM quillmere.file
ALL INNER JOIN (SELECT load, server FROM quillmere.image_here) USING load
WHERE length >= {length:UInt64}
GROUP BY path, length
HAVING servers > 1
ORDER BY servers DESC, length DESC, path
LIMIT {count:UInt64};
