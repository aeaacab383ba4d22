-- The rows of `people` against the answers of `txscan apply` in :'applied'
-- (its input columns, then one column per call): a count of the rows where
-- they differ, per call, and of the rows compared.
CREATE TABLE applied (id integer, name text, address text, comment text, find text, find_back text, countx text,
  findc text, findc_mods text, countc text, countw text, countw_list text, findw text, findw_mods text,
  last_word text, second text, "position" text, length text);
COPY applied FROM :'applied' WITH (FORMAT csv, HEADER);
SELECT count(*) AS rows_compared,
  count(*) FILTER (WHERE a.name IS DISTINCT FROM p.name OR a.comment IS DISTINCT FROM p.comment) AS texts,
  count(*) FILTER (WHERE kfind(p.name, 'an', 'i')::text IS DISTINCT FROM a.find) AS find,
  count(*) FILTER (WHERE kfind(p.comment, 'e', -200)::text IS DISTINCT FROM a.find_back) AS find_back,
  count(*) FILTER (WHERE kcountx(p.comment, 'e', 'i')::text IS DISTINCT FROM a.countx) AS countx,
  count(*) FILTER (WHERE kfindc(p.address, '0123456789')::text IS DISTINCT FROM a.findc) AS findc,
  count(*) FILTER (WHERE kfindc(p.comment, '', 'ap', -300)::text IS DISTINCT FROM a.findc_mods) AS findc_mods,
  count(*) FILTER (WHERE kcountc(p.comment, 'aeiou', 'i')::text IS DISTINCT FROM a.countc) AS countc,
  count(*) FILTER (WHERE kcountw(p.address)::text IS DISTINCT FROM a.countw) AS countw,
  count(*) FILTER (WHERE kcountw(p.comment, ' ,;')::text IS DISTINCT FROM a.countw_list) AS countw_list,
  count(*) FILTER (WHERE kfindw(p.address, 'Street')::text IS DISTINCT FROM a.findw) AS findw,
  count(*) FILTER (WHERE kfindw(p.comment, 'the', ' ', 'ie')::text IS DISTINCT FROM a.findw_mods) AS findw_mods,
  count(*) FILTER (WHERE coalesce(kscanx(p.name, -1), '') IS DISTINCT FROM coalesce(a.last_word, '')) AS last_word,
  count(*) FILTER (WHERE coalesce(kscanx(p.address, 2, ', '), '') IS DISTINCT FROM coalesce(a.second, '')) AS second,
  count(*) FILTER (WHERE kscanx_position(p.comment, 2)::text IS DISTINCT FROM a."position") AS "position",
  count(*) FILTER (WHERE kscanx_length(p.comment, 2)::text IS DISTINCT FROM a.length) AS length
FROM people p JOIN applied a USING (id);
