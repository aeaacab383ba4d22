#!/usr/bin/python3
"""Sample people for `txscan apply`: names, street addresses and free-text
comments, in ASCII, accented Latin and Japanese, written as CSV (a UTF-8 file
and a Shift_JIS one). Deterministic for a given seed, standard library only.

    make_samples.py                      # the small files committed beside this script
    make_samples.py --rows 1000000 --only utf8 --out /tmp/scratch   # benchmark input
"""
import argparse
import csv
import os
import random

LATIN_FIRST = ["John", "Mary", "Robert", "Linda", "Michael", "Susan", "David", "Karen", "James", "Emma",
               "José", "María", "François", "Zoë", "Jürgen", "Søren", "Ana Lúcia", "Björn", "Agnès",
               "Łukasz", "Renée", "Ignacio", "Hélène", "Müge", "Ólafur", "Anna Maria"]
LATIN_LAST = ["Smith", "Johnson", "Brown", "Taylor", "Anderson", "García", "Müller", "Dubois", "Nuñez",
              "O'Brien", "van der Berg", "Kowalski", "Søndergaard", "Åkesson", "Lefèvre", "Schröder",
              "da Silva", "Martínez", "Çelik", "Fernández-López", "Doyle", "Nakamura"]
JAPANESE_FIRST = ["太郎", "花子", "健一", "美咲", "翔太", "さくら", "大輔", "陽菜", "蓮", "結衣"]
JAPANESE_LAST = ["山田", "佐藤", "鈴木", "高橋", "田中", "伊藤", "渡辺", "中村", "小林", "加藤"]

STREETS_EN = ["Main Street", "Oak Street", "Maple Avenue", "Elm Street", "High Street", "Park Road",
              "Evergreen Terrace", "Station Road", "Church Street", "Mill Lane"]
STREETS_EU = ["Hauptstraße", "Rue de la Paix", "Calle Mayor", "Bahnhofstraße", "Via Roma",
              "Rua Augusta", "Königsallee", "Avenue des Champs-Élysées", "Storgatan", "Plaza España"]
CITIES_EN = ["Springfield", "Portland", "Bristol", "Dublin", "Toronto", "Leeds"]
CITIES_EU = ["München", "Paris", "Madrid", "Köln", "Lisboa", "Göteborg", "Zürich", "Kraków"]
JAPANESE_ADDRESSES = ["東京都新宿区西新宿{n}丁目", "大阪府大阪市北区梅田{n}番地", "京都府京都市左京区{n}条通",
                      "北海道札幌市中央区{n}条西", "愛知県名古屋市中区栄{n}丁目"]

COMMENTS_EN = ["Called about the invoice, will pay next week", "Prefers e-mail, not phone",
               "Moved from Oak Street last year", "VIP customer; ask for \"premium\" plan",
               "No answer", "Asked to update the street address, twice", "Happy with the service",
               "Complained about late delivery\nfollow up on Monday"]
COMMENTS_EU = ["Rückruf erbeten, wohnt in der Hauptstraße", "Très satisfaite du service",
               "Prefiere contacto por correo, dirección nueva en la calle Mayor", "Ha pagato in ritardo",
               "Kunde seit 2015; bevorzugt Überweisung", "Änderung der Straße noch offen"]
COMMENTS_JA = ["請求書について問い合わせあり", "メールでの連絡を希望", "住所変更の依頼 street 表記あり",
               "配送の遅れについて苦情", "来週再度連絡する", "サービスに満足している"]


def person(rng, japanese_share, latin_share):
    roll = rng.random()
    n = rng.randint(1, 250)
    if roll < japanese_share:
        name = f"{rng.choice(JAPANESE_LAST)} {rng.choice(JAPANESE_FIRST)}"
        address = rng.choice(JAPANESE_ADDRESSES).format(n=rng.randint(1, 9)) + f" {n}-{rng.randint(1, 30)}"
        comment = rng.choice(COMMENTS_JA)
    elif roll < japanese_share + latin_share:
        name = f"{rng.choice(LATIN_FIRST)} {rng.choice(LATIN_LAST)}"
        address = f"{rng.choice(STREETS_EU)} {n}, {rng.randint(10000, 99999)} {rng.choice(CITIES_EU)}"
        comment = rng.choice(COMMENTS_EU)
    else:
        name = f"{rng.choice(LATIN_FIRST[:10])} {rng.choice(LATIN_LAST[:5] + LATIN_LAST[-2:])}"
        address = f"{n} {rng.choice(STREETS_EN)}, {rng.choice(CITIES_EN)}"
        comment = rng.choice(COMMENTS_EN)
    if rng.random() < 0.1:
        extra = COMMENTS_EU if latin_share > 0 else COMMENTS_JA
        comment += ", " + rng.choice(COMMENTS_EN + extra).lower()
    return name, address, comment


def write(path, rows, encoding, rng, japanese_share, latin_share):
    with open(path, "w", encoding=encoding, newline="") as out:
        writer = csv.writer(out, lineterminator="\n")
        writer.writerow(["id", "name", "address", "comment"])
        for i in range(1, rows + 1):
            writer.writerow([i, *person(rng, japanese_share, latin_share)])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    here = os.path.dirname(os.path.abspath(__file__))
    parser.add_argument("--rows", type=int, default=2000)
    parser.add_argument("--seed", type=int, default=20260)
    parser.add_argument("--out", default=here)
    parser.add_argument("--only", choices=["utf8", "sjis"])
    args = parser.parse_args()
    if args.only in (None, "utf8"):
        write(os.path.join(args.out, "people.csv"), args.rows, "utf-8", random.Random(args.seed), 0.2, 0.35)
    if args.only in (None, "sjis"):
        # Shift_JIS holds no accented Latin: Japanese and ASCII rows only.
        write(os.path.join(args.out, "people-sjis.csv"), args.rows, "shift_jis", random.Random(args.seed + 1), 0.6, 0.0)


if __name__ == "__main__":
    main()
