"""Rows as the functions meet them: names, addresses and free text of 20 to
120 bytes, ASCII and mixed with accented Latin and CJK, from a fixed seed."""
import random

_FIRST = ["John", "Mary", "José", "Zoë", "François", "Ægir", "Łukasz", "Søren", "太郎", "花子", "Ana María", "O'Neil"]
_LAST = ["Smith", "Müller", "García López", "Dvořák", "山田", "佐藤", "van der Berg", "Nuñez", "O'Brien", "Ødegård"]
_STREETS = ["rue de l'Église", "Hauptstraße", "Calle Mayor", "Main Street", "千代田区丸の内", "Østre Allé"]
_CITIES = ["75004 Paris", "10115 Berlin", "28013 Madrid", "Springfield, IL 62701", "東京都 100-0005", "København"]
_WORDS = ["the", "quick", "brown", "fox", "jumps", "över", "lazy", "dog", "café", "naïve", "résumé", "日本語",
          "テキスト", "data", "value", "with", "and", "ÉTÉ", "price:", "12,50", "(note)", "end."]


def row(rng):
    kind = rng.randrange(3)
    if kind == 0:
        text = f"{rng.choice(_LAST)}, {rng.choice(_FIRST)}"
        if rng.random() < 0.5:
            text += f" {rng.choice(_FIRST)}"
    elif kind == 1:
        text = f"{rng.randrange(1, 300)} {rng.choice(_STREETS)}, {rng.choice(_CITIES)}"
    else:
        text = " ".join(rng.choice(_WORDS) for _ in range(rng.randrange(4, 16)))
    while len(text.encode()) < 20:
        text += " " + rng.choice(_WORDS)
    return text[:100]


def generate(count, seed=18):
    rng = random.Random(seed)
    return [row(rng) for _ in range(count)]
