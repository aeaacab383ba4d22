-- Every function once with each kind of argument, NULLs, refused arguments
-- and modifiers, and arguments of the wrong type.
CREATE EXTENSION txscan;
SELECT kfind('Grüße aus Köln', 'köln', 'i') AS kfind, kcountx('aXaxAX', 'ax', 'i') AS kcountx,
       kfindc('Grüße', 'ßü') AS kfindc, kcountc('Grüße', 'aeiouü') AS kcountc,
       kcountw('日本語 の テキスト') AS kcountw, kfindw('one two three', 'three') AS kfindw,
       kscanx('Grüße aus, Köln', -1) AS kscanx, kscanx_position('one two', 2) AS position,
       kscanx_length('one two', 2) AS length;
-- A start as an integer or as double precision (truncated by the module),
-- modifiers and starts in either order.
SELECT kfind('abcabc', 'bc', -4), kfind('abcabc', 'bc', 2.9), kfindc('abc1', '', 'd', 2),
       kfindc('abc1', '', 2, 'd'), kfindw('a b a b', 'b', ' ', 3), kscanx('a;b;c', 2, ';'),
       kscanx_position('a;b;c', -1, ';'), kcountw('a,,b', ',', 'm');
-- Modifier O keeps the set parsed on the first row only where the list is
-- the same on every row.
SELECT kfindc(s, list, 'o') AS varying, kfindc(s, 'c', 'o') AS constant
FROM (VALUES (1, 'abc', 'c'), (2, 'abc', 'a'), (3, 'cab', 'b')) AS v(i, s, list) ORDER BY i;
-- NULL: an absent text, or the missing value where only a number goes.
SELECT kfind(NULL, 'a') AS absent_text, kfind('abc', 'b', NULL) AS absent_start,
       quote_literal(kscanx(NULL, 1)) AS absent_word, kcountw(NULL) AS no_words,
       kfind('abc', NULL::text) AS absent_search;
SELECT kscanx('a b', NULL);
SELECT kscanx_length('a b', NULL);
-- Refused arguments: SQLSTATE 22023, the status by name and number, the
-- argument at fault.
DO $$ BEGIN PERFORM kfind('abc', 'b', 'i', 'x');
EXCEPTION WHEN invalid_parameter_value THEN RAISE NOTICE 'SQLSTATE %: %', SQLSTATE, SQLERRM; END $$;
SELECT kfind('abc', 'b', 'i', 'x');
SELECT kfindc('abc', 'b', 2, 3);
-- An unknown modifier letter is a note, shown once per call; the call goes on.
SELECT kcountc(s, 'a', 'j') FROM (VALUES ('banana'), ('cab')) AS v(s);
-- Wrong types and counts are PostgreSQL's to refuse.
SELECT kfind(1, 2);
SELECT kscanx('a b', 'two');
SELECT kfind('a');
SELECT kcountw('a', 'b', 'c', 'd');
-- Functions of the catalog: immutable and parallel safe, one overload per
-- argument list the module's table allows.
SELECT proname, count(*) AS overloads, bool_and(provolatile = 'i') AS immutable,
       bool_and(proparallel = 's') AS parallel_safe
FROM pg_proc WHERE proname LIKE 'k%' AND pronamespace = 'public'::regnamespace GROUP BY proname ORDER BY proname;
